#pragma once

#include "pkcs11/drivers/acos/AcosToken.h"
#include "pkcs11/token/InfoRecords.h"

namespace PKCS11 {

/// ACOS cards with the education profile. The variant chooses what the token shows beside the data files: 1
/// key pair 1 with certificate file 0003, 2 key pair 2 with certificate file 0004, any other value neither.
class AcosEDUToken final : public AcosToken {
public:
    /// Throws CKR_GENERAL_ERROR (5) when no channel opens, CKR_DEVICE_ERROR (0x30) when the application, the
    /// variant's key file or file 0005 cannot be selected.
    AcosEDUToken(PCSCSlot* slot, int variant);

    /// Throws what PinToHex throws, CKR_PIN_LOCKED, CKR_PIN_INCORRECT.
    void VerifyPIN(const Blob& pin) override;
    void VerifySOPIN(const Blob& pin) override;
    void ResetSecurity() override;
    Blob getLabel() override;
    Blob getID() override;
    Blob getModel() override;
    Blob getSerialNumber() override;
    void initMechanismList() override;

    /// Selects a file under the application DF; the status word.
    [[nodiscard]] int selectFile(unsigned short fid);
    /// Selects the data file and reads it whole. Throws CKR_DEVICE_ERROR when it cannot be selected.
    Blob readDataFile();

    /// The PIN block of 8 bytes: the digits packed two a byte from the first byte on, FF after them. The
    /// control byte of a format-2 block is overwritten by the first pair. Throws CKR_PIN_LEN_RANGE for more
    /// than 16 digits, CKR_PIN_INVALID for anything but digits.
    static Blob PinToHex(const Blob& pin);

private:
    /// Throws what PinToHex and requirePinAccepted throw.
    void verify(const char* header, const Blob& pin);
    Blob pinBlock(const Blob& pin) const override { return PinToHex(pin); }
    const char* changeHeader() const override;
    /// Selects the application DF under the MF.
    void selectApplication() override;

    int m_variant;
    TokenInfo m_record;
};

} // namespace PKCS11
