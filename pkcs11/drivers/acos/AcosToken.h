#pragma once

#include "pkcs11/drivers/common/CardToken.h"

namespace PKCS11 {

/// That of all keys of these cards: 010001.
Blob acosPublicExponent();

/// What the drivers of the ACOS cards share beside their key operations.
class AcosToken : public CardToken {
public:
    /// Throws CKR_GENERAL_ERROR (5) when no channel opens.
    explicit AcosToken(PCSCSlot* slot);

    /// Filled once.
    CK_TOKEN_INFO getInfo() override;
    /// CHANGE REFERENCE DATA with two PIN blocks, both made before anything is sent. Throws what pinBlock()
    /// and VerifyPIN throw, CKR_DEVICE_ERROR unless the card answers 9000.
    void SetPIN(const Blob& oldPin, const Blob& newPin) override;

    /// Called before every key operation: verifies the cached user PIN again.
    virtual void prepareKeyOperation() { replayUserPin(); }

protected:
    /// Sets what the token information has beside the getters.
    virtual void readInfo() {}
    /// The PIN as the card takes it, 8 bytes. Throws CKR_PIN_LEN_RANGE for one that does not fit.
    virtual Blob pinBlock(const Blob& pin) const = 0;
    /// CHANGE REFERENCE DATA for the user PIN, as hexadecimal text.
    virtual const char* changeHeader() const = 0;
    /// Sends the command and throws CKR_DEVICE_ERROR unless the card answers 9000.
    void select(const char* command);

private:
    bool m_infoFilled = false;
};

} // namespace PKCS11
