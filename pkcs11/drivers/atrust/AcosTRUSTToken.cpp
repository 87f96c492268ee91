#include "pkcs11/drivers/atrust/AcosTRUSTToken.h"

#include "pkcs11/drivers/atrust/AcosTRUSTObjects.h"
#include "pkcs11/pcsc/Command.h"
#include "pkcs11/pcsc/PCSCSlot.h"
#include "pkcs11/token/ByteOrder.h"
#include "pkcs11/token/Hex.h"

#include <algorithm>

namespace PKCS11 {

const char TRUST_DF_DEC_AID[] = "a000000118454e";
const char TRUST_DF_SIG_AID[] = "a0000001184543";

namespace {

constexpr char kSelectFile[] = "00a40000";
constexpr char kSelectMF[] = "00a40000023f00";
constexpr char kReadBinary[] = "00b0000000";
constexpr char kGetFreeMemory[] = "80fa000000";
constexpr char kVerify[] = "00200081";
constexpr char kChangeReferenceData[] = "00240081";

constexpr int kPinLength = 8;
constexpr int kChunk = 0x70;
constexpr CK_ULONG kKeySize = 1024;

} // namespace

AcosTRUSTToken::AcosTRUSTToken(PCSCSlot* slot) : AcosToken(slot)
{
    SelectDF_DECAppl();
    add(std::make_unique<AcosTRUSTPublicKey>(*this, EF_PK_CH_EKEY));
    add(std::make_unique<AcosTRUSTPrivateKey>(*this, EF_PK_CH_EKEY));

    SelectDF_DECAppl();
    if (SelectEF(EF_CERTIFICATE) == SW_SUCCESS)
        add(std::make_unique<AcosTRUSTCertificate>(*this, EF_CERTIFICATE));

    if (SelectEF(EF_CARDHOLDER_ID) == SW_SUCCESS) {
        Blob content;
        if (card().SendCmd(PKCS11_hex2blob(kReadBinary), content) == SW_SUCCESS) {
            m_cardholderId = content;
            add(std::make_unique<AcosTRUSTData>(*this, EF_CARDHOLDER_ID, content));
        }
    }

    SelectDF_DECAppl();
    if (SelectEF(EF_VK) == SW_SUCCESS)
        add(std::make_unique<AcosTRUSTData>(*this, EF_VK, Blob()));
}

void AcosTRUSTToken::readInfo()
{
    const CK_ULONG memory = whole([&] { return GetFreeMemory(); });
    m_tokenInfo.ulFreePublicMemory = memory;
    m_tokenInfo.ulFreePrivateMemory = memory;
    m_tokenInfo.ulMaxPinLen = kPinLength;
}

CK_FLAGS AcosTRUSTToken::getFlag()
{
    // Unlike the other cards this one does not announce CKF_RNG.
    return CKF_LOGIN_REQUIRED | CKF_USER_PIN_INITIALIZED;
}

Blob AcosTRUSTToken::getLabel()
{
    if (m_record.getLabel().empty())
        m_record.setLabel(getModel());
    return m_record.getLabel();
}

Blob AcosTRUSTToken::getID()
{
    return Blob("Austria Card");
}

Blob AcosTRUSTToken::getModel()
{
    return Blob("ACOS TrustSign");
}

Blob AcosTRUSTToken::getSerialNumber()
{
    return Blob(PKCS11_blob2hex(m_cardholderId));
}

void AcosTRUSTToken::initMechanismList()
{
    mechanisms().add({CKM_RSA_PKCS, kKeySize, kKeySize, CKF_HW | CKF_ENCRYPT | CKF_DECRYPT | CKF_SIGN});
}

void AcosTRUSTToken::SelectDF_DECAppl()
{
    requireSuccess(card().Send(PKCS11_hex2blob(kSelectByName), PKCS11_hex2blob(TRUST_DF_DEC_AID)));
    noteSelection();
}

int AcosTRUSTToken::SelectEF(unsigned short fid)
{
    return card().Send(PKCS11_hex2blob(kSelectFile), PKCS11_short2blob(fid));
}

int AcosTRUSTToken::GetEFsize(unsigned short fid, int& sw)
{
    Blob control;
    sw = card().Send(PKCS11_hex2blob(kSelectFile), PKCS11_short2blob(fid), control);
    // 80 02 inside another element counts as well: the answer is scanned, not parsed.
    const Blob tag = PKCS11_hex2blob("8002");
    const auto found = std::search(control.begin(), control.end(), tag.begin(), tag.end());
    const Blob size(found, control.end());
    return size.size() < 4 ? -1 : PKCS11_blob2int(size.slice(2, 2));
}

Blob AcosTRUSTToken::ReadBinary(unsigned short fid, bool& isWhole)
{
    int selected = 0, sw = SW_SUCCESS;
    const int size = GetEFsize(fid, selected);
    Blob command = PKCS11_hex2blob(kReadBinary);
    Blob content;
    if (size < 0)
        sw = card().SendCmd(command, content);
    while (content.size() < size && content.size() < kOffsetLimit) {
        putShort(command, kOffsetPosition, static_cast<unsigned short>(content.size()));
        command.back() = static_cast<unsigned char>(std::min(kChunk, size - content.size()));
        Blob chunk;
        sw = card().SendCmd(command, chunk);
        if (sw != SW_SUCCESS || chunk.empty())
            break;
        content.append(chunk);
    }
    isWhole = selected == SW_SUCCESS && sw == SW_SUCCESS && content.size() >= std::min(size, kOffsetLimit);
    return content;
}

CardValue AcosTRUSTToken::readFile(unsigned short fid)
{
    return whole([&] {
        SelectDF_DECAppl();
        CardValue file;
        file.bytes = ReadBinary(fid, file.isWhole);
        return file;
    });
}

Blob AcosTRUSTToken::getModulus()
{
    if (!m_modulus.empty())
        return m_modulus;
    CardValue file = readFile(EF_PK_CH_EKEY);
    file.bytes = stripTrailingZeros(file.bytes);
    if (file.isWhole)
        m_modulus = file.bytes;
    return file.bytes;
}

CK_ULONG AcosTRUSTToken::GetFreeMemory()
{
    static_cast<void>(card().SendCmd(PKCS11_hex2blob(kSelectMF)));
    Blob answer;
    if (card().SendCmd(PKCS11_hex2blob(kGetFreeMemory), answer) != SW_SUCCESS)
        return 0;
    return static_cast<CK_ULONG>(PKCS11_blob2int(answer.slice(0, 2)));
}

Blob AcosTRUSTToken::PadPin(const Blob& pin)
{
    return padPin(pin, kPinLength, 0x00);
}

Blob AcosTRUSTToken::GetDataLabel(unsigned short fid)
{
    switch (fid) {
    case EF_CARDHOLDER_ID:
        return Blob("EF_Cardholder ID");
    case EF_VK:
        return Blob("EF_VK");
    default:
        return {};
    }
}

void AcosTRUSTToken::VerifyPIN(const Blob& pin)
{
    const Blob padded = PadPin(pin);
    makeCurrent();
    requirePinAccepted(sendVerify(PKCS11_hex2blob(kVerify), padded));
    cacheUserPin(pin);
}

const char* AcosTRUSTToken::changeHeader() const
{
    return kChangeReferenceData;
}

void AcosTRUSTToken::ResetSecurity()
{
    forgetPins();
    select(kSelectMFNoResponse);
    SelectDF_DECAppl();
}

void AcosTRUSTToken::prepareKeyOperation()
{
    // A replayed PIN has selected DF_DEC; without one the MF may still be selected.
    if (userPin().empty())
        SelectDF_DECAppl();
    else
        replayUserPin();
}

} // namespace PKCS11
