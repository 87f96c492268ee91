#pragma once

#include "pkcs11/drivers/cardos/CardOSModels.h"
#include "pkcs11/drivers/common/CardToken.h"
#include "pkcs11/drivers/common/LazyRsaKey.h"
#include "pkcs11/token/InfoRecords.h"

#include <array>
#include <optional>

namespace PKCS11 {

/// Driver of CardOS cards, M4.0 to V5.0, that carry this system's file layout: an application with one DF, in
/// it a directory of at most 80 objects, an attribute file for each object, and an EF with its value or a DF
/// with its key. The card is read only for this driver, but for PINs and the public key that it works with.
class CardOSToken : public CardToken {
public:
    /// Reads the directory and the attributes of all objects. Throws CKR_DEVICE_ERROR (0x30) where the card
    /// refuses a step, what BERCoder::import throws for an attribute file that is no record, and
    /// CKR_GENERAL_ERROR (5) when the reader fails.
    explicit CardOSToken(PCSCSlot* slot);

    // PINs go to the card as they are. An empty one, or one of more than 255 bytes, is CKR_PIN_LEN_RANGE
    // (0xA2) and is not sent; one that the card refuses is CKR_PIN_INCORRECT (0xA0) or CKR_PIN_LOCKED (0xA4),
    // a change that it refuses CKR_DEVICE_ERROR (0x30).
    /// Throws CKR_USER_NOT_LOGGED_IN (0x101) without a cached SO PIN.
    void InitPIN(const Blob& pin) override;
    void SetPIN(const Blob& oldPin, const Blob& newPin) override;
    void SetSOPIN(const Blob& oldPin, const Blob& newPin) override;
    void VerifyPIN(const Blob& pin) override;
    void VerifySOPIN(const Blob& pin) override;
    void ResetSecurity() override;
    Blob getLabel() override { return m_record.getLabel(); }
    Blob getID() override { return Blob(isV50() ? "Atos IT Solutions" : "Siemens"); }
    Blob getModel() override { return Blob(m_model->name); }
    Blob getSerialNumber() override { return m_record.getSerialNumber(); }
    void initMechanismList() override;

    bool isV50() const { return m_model->code == kCardOSV50; }

    // For the objects; `index` is the object's place in the directory.

    /// The attribute record of an object, read from the card. Throws CKR_DEVICE_ERROR.
    Blob readAttributeFile(int index);
    /// The value of a certificate or data object, read from the card; what came before an error, if one ends
    /// the reading. Throws CKR_DEVICE_ERROR where the file cannot be selected.
    CardValue readValueFile(int index);
    /// The RSA public key in the DF of a key; leaves empty what the card does not give. False where it
    /// refused to be read. Throws CKR_DEVICE_ERROR where the driver's DF cannot be selected.
    bool ReadPublicKey(int index, Blob& modulus, Blob& exponent);
    /// Makes the DF of a key the current one, starting from the application. The status of the step that
    /// failed, or 9000.
    [[nodiscard]] int selectKeyDF(int index);

private:
    struct DirectoryEntry {
        unsigned char type = 0;
        unsigned short attributeFile = 0;
        /// EF of the value, or DF of the key.
        unsigned short value = 0;
    };
    static constexpr int kDirectoryEntries = 80;

    void CheckVersion();
    void readFreeMemory();
    void readDirectory();
    void addObject(int index);
    bool Is_RSA2048loaded();

    void selectApplication() override;
    [[nodiscard]] int selectDF(unsigned short fid);
    [[nodiscard]] int selectEF(unsigned short fid);
    /// Application and driver DF; throws CKR_DEVICE_ERROR.
    void openDriverDF();
    /// An EF of the current DF; throws CKR_DEVICE_ERROR.
    Blob readEF(unsigned short fid);
    const DirectoryEntry& entry(int index) const { return m_directory.at(static_cast<std::size_t>(index)); }

    RsaComponents readKey(unsigned short keyDF);
    /// Record 1 and 2 of the selected key file; none when the first is refused.
    std::optional<RsaComponents> readKeyRecords();
    RsaComponents readKeyFile();
    RsaComponents readPublicPart();

    void verify(const char* header, const Blob& pin);
    /// CHANGE REFERENCE DATA with the new PIN only; throws CKR_DEVICE_ERROR.
    void change(const char* header, const Blob& newPin);

    const CardOSModel* m_model = &kUnknownCardOSModel;
    TokenInfo m_record;
    std::array<DirectoryEntry, kDirectoryEntries> m_directory;
};

} // namespace PKCS11
