#pragma once

#include "pkcs11/drivers/common/CardObjects.h"
#include "pkcs11/drivers/common/CardToken.h"
#include "pkcs11/drivers/ias/PKCS15BaseDF.h"
#include "pkcs11/drivers/ias/PKCS15ODF.h"
#include "pkcs11/drivers/ias/PKCS15TokenInfo.h"

#include <optional>

namespace PKCS11 {

/// Driver of IAS-ECC cards with a PKCS#15 file structure (ISO/IEC 7816-15). Shows an object for each entry of
/// the certificate, public key, private key and data directories; a directory that cannot be read shows none.
/// What PINs the card has, and how they are padded, its authentication objects tell. The card applies the
/// PKCS#1 padding.
class IASToken final : public CardToken {
public:
    /// Selects the application that the slot has found, reads the directories and builds all objects. Throws
    /// CKR_GENERAL_ERROR (5) when no channel opens, CKR_DEVICE_ERROR (0x30) when the application cannot be
    /// selected.
    explicit IASToken(PCSCSlot* slot);

    // PINs go to the card as its PIN object tells: CKR_USER_PIN_NOT_INITIALIZED (0x102) where there is none,
    // CKR_PIN_LEN_RANGE (0xA2) for one that does not fit, unsent; CKR_PIN_INCORRECT (0xA0) or CKR_PIN_LOCKED
    // (0xA4) for one that the card refuses.
    void VerifyPIN(const Blob& pin) override;
    void VerifySOPIN(const Blob& pin) override;
    void SetPIN(const Blob& oldPin, const Blob& newPin) override;
    void SetSOPIN(const Blob& oldPin, const Blob& newPin) override;
    /// Unblocks the user PIN with the cached SO PIN; throws CKR_USER_NOT_LOGGED_IN (0x101) without one.
    void InitPIN(const Blob& pin) override;

    /// Selects the application again.
    void ResetSecurity() override;
    Blob getLabel() override { return m_cardInfo.label; }
    Blob getID() override { return m_cardInfo.manufacturerID; }
    Blob getModel() override { return Blob("IAS-ECC"); }
    Blob getSerialNumber() override { return m_cardInfo.serialNumber; }
    void initMechanismList() override;

    /// Reads the RSA public key of the key with the reference. False when the card refuses. Throws
    /// CKR_DEVICE_ERROR when the application cannot be selected.
    bool ReadPublicKey(unsigned char reference, Blob& modulus, Blob& exponent);
    /// The reference of a public key: its own, or that of the private key with the same ID.
    std::optional<unsigned char> publicKeyReference(const PKCS15PrivateKeyObject& record) const;
    /// Reads the value of an object at its path; empty when the path names no file. Throws CKR_DEVICE_ERROR
    /// when the file cannot be selected.
    CardValue readValue(const PKCS15CommonObjectAttributes& record, const PKCS15Path& path);

private:
    void selectApplication() override;

    /// Byte that names a PIN to the card; nothing while no authentication object has told it.
    using PinReference = std::optional<unsigned char>;

    void Init();
    void addObjects();
    /// Finds the PINs among the authentication objects.
    void SetPins();
    void takePinRules(const PKCS15PinAttributes& attributes);
    /// The value of the serial number file under the MF, or nothing; leaves the MF selected.
    Blob GetIASSerialNumber();

    /// The content of the file that a path (ISO 7816-4) names, from the MF or from the application, which is
    /// selected before and after; nothing when the file cannot be selected.
    std::optional<CardValue> readFile(const Blob& path);
    /// The same for a file in directories that are selected one after the other; `sw` is the status of the
    /// last SELECT.
    std::optional<CardValue> readFile(const Blob& directories, const Blob& fid, int& sw);
    CardValue readSelectedFile();
    Blob readEF(unsigned short fid);
    /// The content of the directory that the ODF names; empty where there is none.
    Blob ReadPkcs15EF(int index);

    /// Throw CKR_PIN_LEN_RANGE (0xA2) for a PIN that is too long, CKR_USER_PIN_NOT_INITIALIZED (0x102) for an
    /// unknown reference, CKR_PIN_LOCKED and CKR_PIN_INCORRECT.
    void VerifyPIN(const Blob& pin, PinReference reference);
    void ChangePIN(const Blob& oldPin, const Blob& newPin, PinReference reference);
    bool padsPins() const { return m_padding && m_paddedLength > 0; }
    Blob paddedPin(const Blob& pin, const char* where) const;
    void cachePin(const Blob& pin, PinReference reference);

    PKCS15TokenInfo m_cardInfo;
    PKCS15ODF m_odf;
    PKCS15AuthODF m_authentication;
    PKCS15CertDF m_certificates;
    PKCS15PrKDF m_privateKeys;
    PKCS15PuKDF m_publicKeys;
    PKCS15DODF m_data;
    PinReference m_userReference;
    PinReference m_soReference;
    bool m_padding = false;
    unsigned char m_paddedLength = 0;
    unsigned char m_padChar = 0;
};

} // namespace PKCS11
