#include "pkcs11/drivers/edu/AcosEDUToken.h"

#include "pkcs11/PKCS11Exception.h"
#include "pkcs11/drivers/edu/AcosEDUObjects.h"
#include "pkcs11/pcsc/Command.h"
#include "pkcs11/pcsc/PCSCSlot.h"
#include "pkcs11/token/ByteOrder.h"
#include "pkcs11/token/Hex.h"

#include <algorithm>

namespace PKCS11 {

namespace {

constexpr char kSelectApplication[] = "00a4000002dfa3";
constexpr char kSelectApplicationNoResponse[] = "00a4000c02dfa3";
constexpr char kSelectFile[] = "00a40000";

constexpr unsigned short kDataFile = 0x0005;
constexpr unsigned short kDataFiles[] = {0x0005, 0x0006, 0x0007};

constexpr int kBlockLength = 8;
constexpr int kMaxDigits = 2 * kBlockLength;
constexpr CK_ULONG kMinKeySize = 512;
constexpr CK_ULONG kMaxKeySize = 1024;

/// What a variant shows, and the PIN references that it uses.
struct Variant {
    int number;
    unsigned short keyFile; ///< 0 for none
    unsigned short certificateFile;
    const char* verifyUser;
    const char* verifySO;
    const char* changeUser;
};
constexpr Variant kVariants[] = {
    {1, 0x0001, 0x0003, "00202083", "00202085", "80242083"},
    {2, 0x0002, 0x0004, "00202084", "00202086", "80242084"},
};
/// Any other number: no key and no certificate, the PINs of variant 2.
constexpr Variant kOtherVariant = {0, 0, 0, "00202084", "00202086", "80242084"};

const Variant& variantOf(int number)
{
    const auto* found = std::find_if(std::begin(kVariants), std::end(kVariants),
                                     [number](const Variant& variant) { return variant.number == number; });
    return found == std::end(kVariants) ? kOtherVariant : *found;
}

} // namespace

AcosEDUToken::AcosEDUToken(PCSCSlot* slot, int variant) : AcosToken(slot), m_variant(variant)
{
    Blob response;
    requireSuccess(card().SendCmd(PKCS11_hex2blob(kSelectApplication), response));
    noteSelection();

    const Variant& shown = variantOf(variant);
    if (shown.keyFile != 0) {
        requireSuccess(selectFile(shown.keyFile));
        add(std::make_unique<AcosEDUPublicKey>(*this, shown.number));
        add(std::make_unique<AcosEDUPrivateKey>(*this, shown.number));
    }
    for (const unsigned short fid : kDataFiles) {
        if (selectFile(fid) == SW_SUCCESS)
            add(std::make_unique<AcosEDUData>(*this));
    }
    if (shown.certificateFile != 0 && selectFile(shown.certificateFile) == SW_SUCCESS)
        add(std::make_unique<AcosEDUCertificate>(*this));
}

// No file of the card gives model, label or serial number: they stay as a fresh record has them.

Blob AcosEDUToken::getModel()
{
    return {};
}

Blob AcosEDUToken::getLabel()
{
    return m_record.getLabel();
}

Blob AcosEDUToken::getSerialNumber()
{
    return m_record.getSerialNumber();
}

Blob AcosEDUToken::getID()
{
    return Blob("ACOS EDU");
}

void AcosEDUToken::initMechanismList()
{
    mechanisms().add({CKM_RSA_PKCS, kMaxKeySize, kMinKeySize, CKF_HW | CKF_DECRYPT | CKF_SIGN});
}

int AcosEDUToken::selectFile(unsigned short fid)
{
    Blob response;
    return card().Send(PKCS11_hex2blob(kSelectFile), PKCS11_short2blob(fid), 0, response);
}

Blob AcosEDUToken::readDataFile()
{
    requireSuccess(selectFile(kDataFile));
    Blob content;
    static_cast<void>(card().ReadBinary(content)); // what there is of it
    return content;
}

Blob AcosEDUToken::PinToHex(const Blob& pin)
{
    if (pin.size() > kMaxDigits)
        throw PKCS11Exception(CKR_PIN_LEN_RANGE);
    if (!std::all_of(pin.begin(), pin.end(),
                     [](unsigned char digit) { return digit >= '0' && digit <= '9'; }))
        throw PKCS11Exception(CKR_PIN_INVALID);
    Blob digits;
    digits.reserve(kMaxDigits);
    digits.append(pin);
    // '?' packs as the nibble F.
    if (digits.size() % 2 != 0)
        digits.push_back('?');
    Blob block(kBlockLength, 0xFF);
    for (int i = 0; i < digits.size(); i += 2)
        block.at(i / 2) = static_cast<unsigned char>((digits.at(i) - '0') << 4 | (digits.at(i + 1) - '0'));
    return block;
}

void AcosEDUToken::verify(const char* header, const Blob& pin)
{
    const Blob block = PinToHex(pin);
    requirePinAccepted(sendVerify(PKCS11_hex2blob(header), block));
}

void AcosEDUToken::VerifyPIN(const Blob& pin)
{
    verify(variantOf(m_variant).verifyUser, pin);
    cacheUserPin(pin);
}

void AcosEDUToken::VerifySOPIN(const Blob& pin)
{
    verify(variantOf(m_variant).verifySO, pin);
    cacheSOPin(pin);
}

const char* AcosEDUToken::changeHeader() const
{
    return variantOf(m_variant).changeUser;
}

void AcosEDUToken::ResetSecurity()
{
    forgetPins();
    select(kSelectMFNoResponse);
    selectApplication();
}

void AcosEDUToken::selectApplication()
{
    select(kSelectApplicationNoResponse);
    noteSelection();
}

} // namespace PKCS11
