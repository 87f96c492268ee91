#pragma once

#include "pkcs11/drivers/acos/AcosToken.h"
#include "pkcs11/drivers/common/CardObjects.h"
#include "pkcs11/token/InfoRecords.h"

namespace PKCS11 {

/// Application identifiers of the card as hexadecimal text; the driver uses the first one only.
extern const char TRUST_DF_DEC_AID[];
extern const char TRUST_DF_SIG_AID[];

/// Files of DF_DEC.
constexpr unsigned short EF_PK_CH_EKEY = 0xB001;    ///< key pair: public key file, zero padded
constexpr unsigned short EF_CERTIFICATE = 0xC001;   ///< the card holder's certificate
constexpr unsigned short EF_CARDHOLDER_ID = 0xD001; ///< its content is the serial number
constexpr unsigned short EF_VK = 0xC003;            ///< a data file

/// The ACOS signature card of A-Trust, driven in its decryption application: one RSA key pair of 1024 bits, a
/// certificate and two data files.
class AcosTRUSTToken final : public AcosToken {
public:
    /// Throws CKR_GENERAL_ERROR (5) when no channel opens, CKR_DEVICE_ERROR (0x30) when DF_DEC cannot be
    /// selected.
    explicit AcosTRUSTToken(PCSCSlot* slot);

    /// Throws CKR_PIN_LEN_RANGE (0xA2) for more than 8 bytes, CKR_PIN_LOCKED (0xA4), CKR_PIN_INCORRECT
    /// (0xA0).
    void VerifyPIN(const Blob& pin) override;
    void ResetSecurity() override;
    CK_FLAGS getFlag() override;
    Blob getLabel() override;
    Blob getID() override;
    Blob getModel() override;
    Blob getSerialNumber() override;
    void initMechanismList() override;
    void prepareKeyOperation() override;

    /// Throws CKR_DEVICE_ERROR unless the card answers 9000.
    void SelectDF_DECAppl();
    /// Reads a file of DF_DEC, which must be selected, in chunks of 112 bytes. `isWhole` becomes false when
    /// it ended before the size that the card told.
    Blob ReadBinary(unsigned short fid, bool& isWhole);
    /// Selects DF_DEC and reads a file of it.
    CardValue readFile(unsigned short fid);
    /// The modulus of the key pair, read from the card on first use; empty when it cannot be read.
    Blob getModulus();
    /// The same as far as it was read.
    const Blob& knownModulus() const { return m_modulus; }

    static Blob PadPin(const Blob& pin);
    /// Label of a data file, empty for any other.
    static Blob GetDataLabel(unsigned short fid);

private:
    void readInfo() override;
    Blob pinBlock(const Blob& pin) const override { return PadPin(pin); }
    const char* changeHeader() const override;
    void selectApplication() override { SelectDF_DECAppl(); }
    [[nodiscard]] int SelectEF(unsigned short fid);
    /// Size of the file as its SELECT answer tells it, in bytes; -1 when it does not. `sw` is the status of
    /// SELECT.
    int GetEFsize(unsigned short fid, int& sw);
    /// Free memory in bytes; 0 when the card does not tell. Leaves the MF selected.
    CK_ULONG GetFreeMemory();

    TokenInfo m_record;
    Blob m_cardholderId;
    Blob m_modulus;
};

} // namespace PKCS11
