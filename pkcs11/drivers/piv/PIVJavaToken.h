#pragma once

#include "pkcs11/drivers/common/CardToken.h"
#include "pkcs11/token/InfoRecords.h"

namespace PKCS11 {

class PIVJavaPrivateKey;
class PIVJavaPublicKey;

/// The keys of a container.
struct PIVKeyPair {
    std::unique_ptr<PIVJavaPublicKey> publicKey;
    std::unique_ptr<PIVJavaPrivateKey> privateKey;
};

/// Driver of PIV cards (NIST SP 800-73-4). Shows a certificate, a public and a private key for each of the
/// four certificate containers that holds a certificate. The card is read only for this driver.
class PIVJavaToken : public CardToken {
public:
    /// Selects the application and builds all objects. Throws CKR_DEVICE_ERROR (0x30) for a card without the
    /// application, CKR_GENERAL_ERROR (5) when the reader fails.
    explicit PIVJavaToken(PCSCSlot* slot);

    // PINs of at most 8 bytes. The card-holder PIN is the user PIN, the PIN unblocking key the SO PIN.
    void VerifyPIN(const Blob& pin) override;
    void VerifySOPIN(const Blob& pin) override;
    /// Throws CKR_PIN_INCORRECT (0xA0) for a new PIN that is too long, CKR_DEVICE_ERROR when the card refuses
    /// the change.
    void SetPIN(const Blob& oldPin, const Blob& newPin) override;
    void SetSOPIN(const Blob& oldPin, const Blob& newPin) override;

    void ResetSecurity() override;
    Blob getLabel() override { return m_info.getLabel(); }
    Blob getID() override;
    Blob getModel() override { return Blob("PIV"); }
    Blob getSerialNumber() override { return m_info.getSerialNumber(); }
    void initMechanismList() override;

    /// Label of a certificate from a container's tag byte; "User Certificate" for any other byte.
    virtual Blob getCertLabel(unsigned char tag);
    /// Label of a key from its key reference word; "RSA Key" for a word that names no key of the table with
    /// an algorithm of PIV.
    virtual Blob getKeyLabel(unsigned short word);

    /// SELECT by name. Throws CKR_DEVICE_ERROR.
    void SelectApp(const Blob& aid);
    /// The content of the container 5F C1 xx; empty when the card gives none.
    Blob readContainerData(unsigned char tag);
    /// GENERAL AUTHENTICATE with the key of the word on the data, which the key works on as they are. Returns
    /// the answer of the card, the template 7C; an error status gives an empty one where the command fits in
    /// one piece, and CKR_DEVICE_ERROR where it takes more. Throws CKR_DATA_LEN_RANGE for more than two
    /// pieces hold, unless takesLongChains().
    Blob GeneralAuth(unsigned short word, const Blob& data);

    /// Throws CKR_USER_NOT_LOGGED_IN (0x101) when no user PIN is cached.
    void requireUserPin(const char* where) const;

protected:
    /// Makes the keys that belong to the certificate and the key reference word. What its container says of
    /// them is set afterwards: their names, their type, the components of RSA keys.
    using KeyFactory = PIVKeyPair (*)(PIVJavaToken& token, unsigned short word, const Blob& certificate);

    /// For derived drivers, whose virtual operations do not count yet while the objects are built.
    PIVJavaToken(PCSCSlot* slot, KeyFactory makeKeys);

    void selectApplication() override;
    /// Whether a command may go in more than two pieces.
    virtual bool takesLongChains() const { return false; }

private:
    /// VERIFY with the padded PIN. Throws CKR_PIN_LEN_RANGE, CKR_PIN_LOCKED, CKR_PIN_INCORRECT.
    void verify(const char* header, const Blob& pin);
    /// Puts certificate, public and private key of a container into the object list, unless it is empty.
    void addContainer(unsigned char tag, KeyFactory makeKeys);

    TokenInfo m_info;
    /// Empty until the reader has told the ATR.
    Blob m_manufacturer;
};

} // namespace PKCS11
