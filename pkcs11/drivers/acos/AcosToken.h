#pragma once

#include "pkcs11/drivers/common/CardToken.h"

namespace PKCS11 {

/// What the drivers of the ACOS cards share beside their key operations.
class AcosToken : public CardToken {
public:
    /// Throws CKR_GENERAL_ERROR (5) when no channel opens.
    explicit AcosToken(PCSCSlot* slot);

    /// Called before every key operation: verifies the cached user PIN again.
    virtual void prepareKeyOperation() { replayUserPin(); }

protected:
    /// CHANGE REFERENCE DATA with two blocks of 8 bytes; the new PIN becomes the cached user PIN. Throws
    /// CKR_DEVICE_ERROR unless the card answers 9000.
    void changeUserPin(const char* header, const Blob& oldBlock, const Blob& newBlock, const Blob& newPin);
    /// Sends the command and throws CKR_DEVICE_ERROR unless the card answers 9000.
    void select(const char* command);
};

} // namespace PKCS11
