#include "pkcs11/drivers/cardos/CardOSToken.h"

#include "pkcs11/PKCS11Exception.h"
#include "pkcs11/drivers/cardos/CardOSCertificate.h"
#include "pkcs11/drivers/cardos/CardOSData.h"
#include "pkcs11/drivers/cardos/CardOSPrivateKey.h"
#include "pkcs11/drivers/cardos/CardOSPublicKey.h"
#include "pkcs11/pcsc/Command.h"
#include "pkcs11/pcsc/PCSCSlot.h"
#include "pkcs11/token/BERTags.h"
#include "pkcs11/token/ByteOrder.h"
#include "pkcs11/token/ByteReader.h"
#include "pkcs11/token/Hex.h"

namespace PKCS11 {

namespace {

// Commands: CLA INS P1 P2, where a PIN follows; the whole command otherwise.
constexpr char kGetVersion[] = "00ca018202";
constexpr char kGetFreeMemory[] = "00ca018a00";
constexpr char kGetPackages[] = "00ca018800";
constexpr char kSelectApplication[] = "00a4040c08d276000098c00000";
/// SELECT of a DF or an EF under the current DF; bytes kFileIdentifier and the next are its identifier.
constexpr char kSelectDF[] = "00a4010002000400";
constexpr char kSelectEF[] = "00a4020002000300";
constexpr int kFileIdentifier = 5;
constexpr char kReadModulusRecord[] = "00b2010400";
constexpr char kReadExponentRecord[] = "00b2020400";
/// V5.0: the public part of key 02, algorithm 80.
constexpr char kReadPublicPart[] = "0047830008b80684010295018000";
constexpr char kVerifyUserPin[] = "00200081";
constexpr char kVerifySOPin[] = "00200082";
constexpr char kChangeUserPin[] = "00240181";
constexpr char kChangeSOPin[] = "00240182";

// Files.
constexpr unsigned short kDriverDF = 0x2001;
constexpr unsigned short kDirectoryEF = 0x0001;
constexpr unsigned short kTokenAttributesEF = 0x0002;
constexpr unsigned short kPublicKeyEF = 0x0001; ///< in the DF of a key

// Types of directory entries; any other is an empty entry.
constexpr unsigned char kPrivateKeyEntry = 1;
constexpr unsigned char kPublicKeyEntry = 2;
constexpr unsigned char kCertificateEntry = 3;
constexpr unsigned char kDataEntry = 4;
constexpr int kDirectoryEntrySize = 6;

constexpr int kShortMemoryField = 2;
constexpr int kLongMemoryField = 4;
/// What a card with the package for RSA keys of 2048 bits answers to kGetPackages.
constexpr char kRSA2048Package[] = "e10901041c02c8068f0101";

/// Header of a record in a key file.
constexpr int kKeyRecordHeader = 3;
/// A key file without records has two bytes where the tag of a SEQUENCE belongs.
constexpr int kKeyFileTag = 2;
constexpr int kModulusTag = 0x81;
constexpr int kExponentTag = 0x82;

Blob withFileIdentifier(const char* command, unsigned short fid)
{
    Blob bytes = PKCS11_hex2blob(command);
    putShort(bytes, kFileIdentifier, fid);
    return bytes;
}

CK_ULONG bigEndian(const Blob& bytes)
{
    CK_ULONG value = 0;
    for (const unsigned char byte : bytes)
        value = value << 8 | byte;
    return value;
}

/// The structure that the bytes begin with; one without components when they are none.
BERCoder decoded(const Blob& bytes)
{
    try {
        BERCoder node;
        node.import(bytes, 0);
        return node;
    } catch (const PKCS11Exception&) {
        return {};
    }
}

/// The number in component i, or nothing.
Blob numberAt(const BERCoder& node, int i)
{
    if (i >= node.getSize() || node.component(i).getTag().IsConstructed())
        return {};
    return stripSignByte(node.component(i).getValue());
}

} // namespace

CardOSToken::CardOSToken(PCSCSlot* slot) : CardToken(slot)
{
    requireChannel();
    CheckVersion();
    readFreeMemory();
    openDriverDF();
    readDirectory();
    m_record = TokenInfo(readEF(kTokenAttributesEF));
    for (int index = 0; index < kDirectoryEntries; ++index)
        addObject(index);
}

void CardOSToken::CheckVersion()
{
    Blob version;
    requireSuccess(card().SendCmd(PKCS11_hex2blob(kGetVersion), version));
    if (version.size() < 2)
        throw PKCS11Exception(CKR_DEVICE_ERROR);
    m_model = &findCardOSModel(ByteReader(version).word());
}

void CardOSToken::readFreeMemory()
{
    Blob answer;
    requireSuccess(card().SendCmd(PKCS11_hex2blob(kGetFreeMemory), answer));
    if (answer.size() < kShortMemoryField)
        return;
    const bool isLong = isV50() && answer.size() >= kLongMemoryField;
    const CK_ULONG free = bigEndian(answer.slice(0, isLong ? kLongMemoryField : kShortMemoryField));
    m_tokenInfo.ulFreePublicMemory = free;
    m_tokenInfo.ulFreePrivateMemory = free;
}

void CardOSToken::readDirectory()
{
    const Blob content = readEF(kDirectoryEF);
    ByteReader reader(content);
    // An entry that a short directory lacks, wholly or in part, stays empty.
    for (DirectoryEntry& entry : m_directory) {
        if (!reader.has(kDirectoryEntrySize))
            break;
        entry.type = reader.byte();
        reader.skip(1);
        entry.attributeFile = static_cast<unsigned short>(reader.word());
        entry.value = static_cast<unsigned short>(reader.word());
    }
}

void CardOSToken::addObject(int index)
{
    switch (entry(index).type) {
    case kPrivateKeyEntry:
        add(std::make_unique<CardOSPrivateKey>(*this, index));
        break;
    case kPublicKeyEntry:
        add(std::make_unique<CardOSPublicKey>(*this, index));
        break;
    case kCertificateEntry:
        add(std::make_unique<CardOSCertificate>(*this, index));
        break;
    case kDataEntry:
        add(std::make_unique<CardOSData>(*this, index));
        break;
    default:
        break;
    }
}

void CardOSToken::initMechanismList()
{
    constexpr CK_ULONG kMinSize = 512;
    constexpr CK_FLAGS kFlags = CKF_HW | CKF_ENCRYPT | CKF_DECRYPT | CKF_SIGN | CKF_VERIFY;
    const CK_ULONG maxSize = isV50() ? 4096 : Is_RSA2048loaded() ? 2048 : 1024;
    mechanisms().add({CKM_RSA_PKCS, maxSize, kMinSize, kFlags});
    mechanisms().add({CKM_RSA_X_509, maxSize, kMinSize, kFlags});
}

bool CardOSToken::Is_RSA2048loaded()
{
    if (m_model->code >= kCardOSFirstWith2048)
        return true;
    const Blob wanted = PKCS11_hex2blob(kRSA2048Package);
    Blob packages;
    if (card().SendCmd(PKCS11_hex2blob(kGetPackages), packages) != SW_SUCCESS)
        return false;
    packages.resize(wanted.size());
    return packages == wanted;
}

// --- Files ---------------------------------------------------------------------------------------

void CardOSToken::selectApplication()
{
    requireSuccess(card().SendCmd(PKCS11_hex2blob(kSelectApplication)));
    noteSelection();
}

int CardOSToken::selectDF(unsigned short fid)
{
    return card().SendCmd(withFileIdentifier(kSelectDF, fid));
}

int CardOSToken::selectEF(unsigned short fid)
{
    return card().SendCmd(withFileIdentifier(kSelectEF, fid));
}

void CardOSToken::openDriverDF()
{
    CardOSToken::selectApplication();
    requireSuccess(selectDF(kDriverDF));
}

Blob CardOSToken::readEF(unsigned short fid)
{
    requireSuccess(selectEF(fid));
    Blob content;
    requireSuccess(card().ReadBinary(content));
    return content;
}

Blob CardOSToken::readAttributeFile(int index)
{
    openDriverDF();
    return readEF(entry(index).attributeFile);
}

CardValue CardOSToken::readValueFile(int index)
{
    return whole([&] {
        openDriverDF();
        requireSuccess(selectEF(entry(index).value));
        CardValue value;
        // Whatever the status: what was read is the value.
        value.isWhole = card().ReadBinary(value.bytes) == SW_SUCCESS;
        return value;
    });
}

int CardOSToken::selectKeyDF(int index)
{
    const int sw = selectDF(kDriverDF);
    return sw == SW_SUCCESS ? selectDF(entry(index).value) : sw;
}

// --- Public keys ---------------------------------------------------------------------------------

bool CardOSToken::ReadPublicKey(int index, Blob& modulus, Blob& exponent)
{
    const RsaComponents key = whole([&] {
        openDriverDF();
        return readKey(entry(index).value);
    });
    modulus = key.modulus;
    exponent = key.exponent;
    return key.isWhole;
}

RsaComponents CardOSToken::readKey(unsigned short keyDF)
{
    constexpr bool kRefused = false;
    if (selectDF(keyDF) != SW_SUCCESS)
        return {{}, {}, kRefused};
    if (isV50())
        return readPublicPart();
    if (selectEF(kPublicKeyEF) != SW_SUCCESS)
        return {{}, {}, kRefused};
    const std::optional<RsaComponents> key = readKeyRecords();
    return key ? *key : readKeyFile();
}

RsaComponents CardOSToken::readPublicPart()
{
    RsaComponents result;
    Blob answer;
    result.isWhole = card().SendCmdChained(PKCS11_hex2blob(kReadPublicPart), answer) == SW_SUCCESS;
    const BERCoder key = result.isWhole ? decoded(answer) : BERCoder();
    if (key.getSize() < 2)
        return result;
    // The numbers stay as the card encodes them, a sign byte included.
    for (int i = 0; i < key.getSize(); ++i) {
        const BERCoder& element = key.component(i);
        if (element.getTag() == kModulusTag)
            result.modulus = element.getValue();
        else if (element.getTag() == kExponentTag)
            result.exponent = element.getValue();
    }
    return result;
}

std::optional<RsaComponents> CardOSToken::readKeyRecords()
{
    RsaComponents key;
    Blob record;
    if (card().SendCmdChained(PKCS11_hex2blob(kReadModulusRecord), record) != SW_SUCCESS)
        return {};
    key.modulus = stripSignByte(record.slice(kKeyRecordHeader));
    key.isWhole = card().SendCmdChained(PKCS11_hex2blob(kReadExponentRecord), record) == SW_SUCCESS;
    if (key.isWhole)
        key.exponent = stripSignByte(record.slice(kKeyRecordHeader));
    return key;
}

RsaComponents CardOSToken::readKeyFile()
{
    RsaComponents result;
    Blob content;
    result.isWhole = card().ReadBinary(content) == SW_SUCCESS;
    const BERCoder key = decoded(Blob(1, kSequence) + content.slice(kKeyFileTag));
    result.modulus = numberAt(key, 0);
    result.exponent = numberAt(key, 1);
    return result;
}

// --- PINs ----------------------------------------------------------------------------------------

void CardOSToken::verify(const char* header, const Blob& pin)
{
    requirePlainPin(pin);
    makeCurrent();
    requirePinAccepted(sendVerify(PKCS11_hex2blob(header), pin));
}

void CardOSToken::change(const char* header, const Blob& newPin)
{
    requireSuccess(sendNewPin(PKCS11_hex2blob(header), newPin));
}

void CardOSToken::VerifyPIN(const Blob& pin)
{
    verify(kVerifyUserPin, pin);
    cacheUserPin(pin);
}

void CardOSToken::VerifySOPIN(const Blob& pin)
{
    verify(kVerifySOPin, pin);
    cacheSOPin(pin);
}

void CardOSToken::SetPIN(const Blob& oldPin, const Blob& newPin)
{
    requirePlainPin(newPin);
    VerifyPIN(oldPin);
    change(kChangeUserPin, newPin);
    cacheUserPin(newPin);
}

void CardOSToken::SetSOPIN(const Blob& oldPin, const Blob& newPin)
{
    requirePlainPin(newPin);
    VerifySOPIN(oldPin);
    change(kChangeSOPin, newPin);
    cacheSOPin(newPin);
}

void CardOSToken::InitPIN(const Blob& pin)
{
    // A copy: the verification replaces the cached PIN.
    const Blob cached = soPin();
    if (cached.empty())
        throw PKCS11Exception(CKR_USER_NOT_LOGGED_IN);
    requirePlainPin(pin);
    VerifySOPIN(cached);
    change(kChangeUserPin, pin);
    cacheUserPin(pin);
}

void CardOSToken::ResetSecurity()
{
    requireSuccess(card().SendCmd(PKCS11_hex2blob(kSelectMFNoResponse)));
    selectApplication();
}

} // namespace PKCS11
