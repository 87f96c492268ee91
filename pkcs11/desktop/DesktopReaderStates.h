#pragma once

#include "pkcs11/pcsc/ReaderStates.h"

#include <optional>

namespace PKCS11 {

/// The readers of a wait that goes on without some of them, and without the PC/SC service, and that ends when
/// a reader is attached. A reader that the service does not know is in the state SCARD_STATE_UNKNOWN.
class DesktopReaderStates final : public ReaderStates {
public:
    explicit DesktopReaderStates(std::vector<std::string> readers);

    long getStatusChange(WaitContext& wait, PCSCWord timeout) override;
    CK_SLOT_ID attachedSlot(const SlotList& slots) const override;

private:
    /// Asks for the readers that are there now. False without a service.
    bool look(WaitContext& wait);
    bool isPresent(std::size_t index) const;
    /// Names the readers that are there to PC/SC; the others are waited for by its notification of changes.
    /// True when one of them has come back, which PC/SC does not count as a change.
    bool addressPresent();
    /// Sets the states of readers that are not there, and marks those that went or came back; true when there
    /// is a change.
    bool markChanges();
    /// Whether a reader was neither there nor had a slot when the wait began.
    bool isNew(const std::string& name) const;

    std::vector<std::string> m_present;
    /// What m_present was at the beginning.
    std::optional<std::vector<std::string>> m_atBegin;
};

} // namespace PKCS11
