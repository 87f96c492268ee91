#pragma once

#include "pkcs11/pcsc/PCSCSystem.h"

namespace PKCS11 {

class PCSCSlot;

/// The PC/SC transaction of the running call: between its first command to a card and its end no other
/// program comes in between.
class CardTransaction {
public:
    /// Begins unless the call has begun one on the card already; true when it did. Rejoins a card that was
    /// reset meanwhile. Throws CKR_DEVICE_REMOVED (0x32) for a card that was removed, whose slot is told so,
    /// and CKR_GENERAL_ERROR (5) when PC/SC fails.
    bool begin(PCSCSlot& slot);
    /// Ends it, leaving the card as it is; nothing without one.
    void end();
    /// Ends it if it is on this slot.
    void end(const PCSCSlot& slot);
    /// For the child of a fork, whose parent's transaction is none of its own.
    void forget() { *this = CardTransaction(); }

private:
    /// Ends what PC/SC failed to end before; `connected` is a handle that is in use.
    void settle(PCSCHandle connected);

    PCSCSlot* m_slot = nullptr;
    /// The handle whose transaction PC/SC failed to end, 0 for none. No other program gets that card before
    /// settle() has ended it, beside the next ones: transactions of one handle nest.
    PCSCHandle m_stuck = 0;
};

} // namespace PKCS11
