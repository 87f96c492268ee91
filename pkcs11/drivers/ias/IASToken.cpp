#include "pkcs11/drivers/ias/IASToken.h"

#include "pkcs11/PKCS11Exception.h"
#include "pkcs11/drivers/ias/PKCS15Objects.h"
#include "pkcs11/pcsc/CardIdentification.h"
#include "pkcs11/pcsc/Command.h"
#include "pkcs11/pcsc/PCSCSlot.h"
#include "pkcs11/token/ByteOrder.h"
#include "pkcs11/token/Hex.h"

#include <algorithm>

namespace PKCS11 {

namespace {

// Commands: CLA INS P1 P2, where data follow; the whole command otherwise.
/// SELECT by file identifier, no answer wanted.
constexpr char kSelectDF[] = "00a4000c";
/// Byte kReference names the PIN.
constexpr char kVerify[] = "002000ff";
constexpr char kChangeReferenceData[] = "002400ff";
constexpr char kResetRetryCounter[] = "002c02ff";
constexpr int kReference = 3;
constexpr char kGetData[] = "00cb3fff";
/// Extended header list for BF A0 0n, 7F49: the public key n. Byte kKeyNumber is n.
constexpr char kPublicKeyHeaderList[] = "4d097007bfa002037f4980";
constexpr int kKeyNumber = 6;

constexpr unsigned short kMF = 0x3F00;
constexpr unsigned short kSerialNumberFile = 0xD003;
/// Bytes of a file identifier, and of the directories in a path; a longer path is no honest card's.
constexpr int kFidSize = 2;
constexpr int kMaxDirectories = 32;

/// Card records throw plain texts; a record or file that is bad counts as empty.
template <class Record>
void importFrom(Record& record, const Blob& content)
{
    try {
        record.Import(content);
    } catch (const char*) {
        return;
    }
}

Blob pinCommand(const char* header, unsigned char reference)
{
    Blob command = PKCS11_hex2blob(header);
    command.at(kReference) = reference;
    return command;
}

void requireIASPinAccepted(int sw)
{
    requirePinAccepted(sw == SW_REFERENCE_DATA_UNUSABLE ? SW_PIN_BLOCKED : sw);
}

bool contains(const Blob& label, const char* word)
{
    return toText(label).find(word) != std::string::npos;
}

/// What the answer to GET DATA holds under 70, BF A0 0n.
Blob cutPublicKey(const Blob& answer, unsigned char number)
{
    const auto object = ByteReader(answer).element();
    if (!object || object->tag != 0x70)
        return {};
    const auto key = ByteReader(object->value).element();
    return key && key->tag == (0xBFA000 | number) ? key->value : Blob();
}

} // namespace

IASToken::IASToken(PCSCSlot* slot) : CardToken(slot)
{
    requireChannel();
    ResetSecurity();
    Init();
    SetPins();
}

void IASToken::Init()
{
    importFrom(m_cardInfo, readEF(EF_TOKEN_INFO_FID));
    const Blob serialNumber = GetIASSerialNumber();
    if (!serialNumber.empty())
        m_cardInfo.serialNumber = serialNumber;
    // The serial number stands under the MF.
    ResetSecurity();
    importFrom(m_odf, readEF(EF_ODF_FID));
    importFrom(m_authentication, ReadPkcs15EF(PKCS15ODF::AODF));
    importFrom(m_certificates, ReadPkcs15EF(PKCS15ODF::CDF));
    importFrom(m_privateKeys, ReadPkcs15EF(PKCS15ODF::PrKDF));
    importFrom(m_publicKeys, ReadPkcs15EF(PKCS15ODF::PuKDF));
    importFrom(m_data, ReadPkcs15EF(PKCS15ODF::DODF));
    addObjects();
}

void IASToken::addObjects()
{
    for (int i = 0; i < m_certificates.GetNumber(); ++i)
        add(std::make_unique<PKCS15Certificate>(*this, m_certificates[i]));
    for (int i = 0; i < m_publicKeys.GetNumber(); ++i)
        add(std::make_unique<PKCS15PublicKey>(*this, m_publicKeys[i]));
    for (int i = 0; i < m_privateKeys.GetNumber(); ++i)
        add(std::make_unique<PKCS15PrivateKey>(*this, m_privateKeys[i]));
    for (int i = 0; i < m_data.GetNumber(); ++i)
        add(std::make_unique<PKCS15Data>(*this, m_data[i]));
}

Blob IASToken::GetIASSerialNumber()
{
    constexpr int kWholeLength = 20;
    try {
        if (card().trySelectEF(PKCS11_short2blob(kMF)) != SW_SUCCESS)
            static_cast<void>(card().SendCmd(PKCS11_hex2blob(kSelectMFNoResponse)));
        card().SelectEF_IAS(kSerialNumberFile);
        const Blob content = card().ReadBinaryEF();
        ByteReader reader(content);
        if (reader.byte() != 0x5A)
            return {};
        const std::string digits = PKCS11_blob2hex(reader.take(reader.byte()));
        return Blob(digits.size() == kWholeLength ? digits.substr(6, 13) : digits);
    } catch (const PKCS11Exception& failure) {
        passReaderFailure(failure);
        return {};
    }
}

void IASToken::SetPins()
{
    for (int i = 0; i < m_authentication.GetNumber() && !(m_userReference && m_soReference); ++i) {
        const PKCS15AuthenticationObject& object = m_authentication[i];
        if (!object.pin || object.pin->pinReference.empty())
            continue;
        const Blob& bytes = object.pin->pinReference;
        const unsigned char reference = bytes.at(bytes.size() >= 2 ? 1 : 0);
        const Blob& label = object.label;
        const bool isSO = contains(label, "SO") || contains(label, "PUK") || (!label.empty() && i > 0);
        if (isSO && !m_soReference) {
            m_soReference = reference;
        } else if (!isSO && !m_userReference) {
            m_userReference = reference;
            takePinRules(*object.pin);
        }
    }
}

void IASToken::takePinRules(const PKCS15PinAttributes& attributes)
{
    m_padding = !attributes.padChar.empty();
    if (m_padding)
        m_padChar = attributes.padChar.front();
    const Blob& length = attributes.storedLength.empty() ? attributes.maxLength : attributes.storedLength;
    m_paddedLength = static_cast<unsigned char>(integerOf(length));
    if (!attributes.minLength.empty())
        m_tokenInfo.ulMinPinLen = static_cast<CK_ULONG>(integerOf(attributes.minLength));
    if (!attributes.maxLength.empty())
        m_tokenInfo.ulMaxPinLen = static_cast<CK_ULONG>(integerOf(attributes.maxLength));
}

void IASToken::initMechanismList()
{
    mechanisms().add({CKM_RSA_PKCS, 2048, 512, CKF_HW | CKF_ENCRYPT | CKF_DECRYPT | CKF_SIGN | CKF_VERIFY});
}

// --- Files ---------------------------------------------------------------------------------------

void IASToken::ResetSecurity()
{
    selectApplication();
}

void IASToken::selectApplication()
{
    card().SelectAppl(card().GetAIDofIAS());
    noteSelection();
}

CardValue IASToken::readSelectedFile()
{
    CardValue file;
    file.bytes = card().ReadBinaryEF(&file.isWhole);
    return file;
}

std::optional<CardValue> IASToken::readFile(const Blob& directories, const Blob& fid, int& sw)
{
    const auto selectDF = [&](int at) {
        return sw = card().Send(PKCS11_hex2blob(kSelectDF), directories.slice(at, kFidSize));
    };
    int selected = 0;
    while (selected < directories.size() && selectDF(selected) == SW_SUCCESS)
        selected += kFidSize;
    std::optional<CardValue> content;
    if (selected >= directories.size() && (sw = card().trySelectEF(fid)) == SW_SUCCESS)
        content = readSelectedFile();
    if (selected > 0)
        ResetSecurity();
    return content;
}

std::optional<CardValue> IASToken::readFile(const Blob& path)
{
    const int start = path.size() % kFidSize;
    const Blob directories = path.slice(start, path.size() - start - kFidSize);
    const Blob fid = path.slice(path.size() - kFidSize);
    if (directories.size() > kMaxDirectories)
        return std::nullopt;
    // The path may begin with directories that lead to the application, which is selected already. How many
    // is not known, so fewer and fewer of them are walked: of a path from the MF at least the MF and one more
    // are left out at first. All of them, MF included, come last, because selecting it gives up the PIN.
    // A card that refuses for another reason than that nothing is there may have the file: no other one is
    // taken for it.
    const bool isAbsolute = directories.slice(0, kFidSize) == PKCS11_short2blob(kMF);
    std::optional<CardValue> content;
    int sw = SW_INCORRECT_P1P2;
    int leftOut = isAbsolute ? std::min(2 * kFidSize, directories.size()) : 0;
    for (; isNotThere(sw) && leftOut <= directories.size(); leftOut += kFidSize)
        content = readFile(directories.slice(leftOut), fid, sw);
    if (isNotThere(sw) && isAbsolute)
        content = readFile(directories, fid, sw);
    return content;
}

Blob IASToken::readEF(unsigned short fid)
{
    return readFile(PKCS11_short2blob(fid)).value_or(CardValue()).bytes;
}

Blob IASToken::ReadPkcs15EF(int index)
{
    const Blob& path = m_odf.path(index).path;
    return path.size() < kFidSize ? Blob() : readFile(path).value_or(CardValue()).bytes;
}

CardValue IASToken::readValue(const PKCS15CommonObjectAttributes& record, const PKCS15Path& path)
{
    if (path.path.size() < kFidSize)
        return {};
    std::optional<CardValue> content;
    whole([&] {
        ResetSecurity();
        content = readFile(path.path);
        if (content && content->bytes.empty() && record.isPrivate() && !userPin().empty()) {
            // The card has forgotten the PIN with the selection.
            showUserPinAgain();
            content = readFile(path.path);
        }
    });
    if (!content)
        throw PKCS11Exception(CKR_DEVICE_ERROR, "Select File", "IASToken::readValue");
    Blob part = content->bytes.slice(integerOf(path.index));
    if (!path.length.empty())
        part = part.slice(0, integerOf(path.length));
    return {part, content->isWhole};
}

bool IASToken::ReadPublicKey(unsigned char reference, Blob& modulus, Blob& exponent)
{
    modulus.clear();
    exponent.clear();
    const auto number = static_cast<unsigned char>(reference & 0x0F);
    Blob headerList = PKCS11_hex2blob(kPublicKeyHeaderList);
    headerList.at(kKeyNumber) = number;
    int sw = 0;
    const Blob answer = whole([&] {
        ResetSecurity();
        return card().SendCard(PKCS11_hex2blob(kGetData), headerList, &sw);
    });
    const auto take = [&](const BERCoder& element) {
        if (hasTag(element, 0x81))
            modulus = stripSignByte(element.getValue());
        else if (hasTag(element, 0x82))
            exponent = stripSignByte(element.getValue());
    };
    try {
        // The components stand in a template 7F49; some cards leave it out.
        for (const Blob& encoded : splitElements(cutPublicKey(answer, number))) {
            BERCoder element;
            element.import(encoded, 0);
            take(element);
            for (int i = 0; i < element.getSize(); ++i)
                take(element.component(i));
        }
    } catch (const PKCS11Exception&) {
        modulus.clear();
        exponent.clear();
    }
    return sw == SW_SUCCESS && !answer.empty();
}

std::optional<unsigned char> IASToken::publicKeyReference(const PKCS15PrivateKeyObject& record) const
{
    const PKCS15CommonKeyAttributes& key = record.key;
    for (int i = 0; !key.reference() && i < m_privateKeys.GetNumber() && !key.iD.empty(); ++i) {
        const PKCS15CommonKeyAttributes& other = m_privateKeys[i].key;
        if (other.iD == key.iD)
            return other.reference();
    }
    return key.reference();
}

// --- PINs ----------------------------------------------------------------------------------------

void IASToken::VerifyPIN(const Blob& pin)
{
    VerifyPIN(pin, m_userReference);
}

void IASToken::VerifySOPIN(const Blob& pin)
{
    VerifyPIN(pin, m_soReference);
}

void IASToken::SetPIN(const Blob& oldPin, const Blob& newPin)
{
    ChangePIN(oldPin, newPin, m_userReference);
}

void IASToken::SetSOPIN(const Blob& oldPin, const Blob& newPin)
{
    ChangePIN(oldPin, newPin, m_soReference);
}

Blob IASToken::paddedPin(const Blob& pin, const char* where) const
{
    if (!padsPins()) {
        requirePlainPin(pin);
        return pin;
    }
    if (pin.size() > m_paddedLength)
        throw PKCS11Exception(CKR_PIN_LEN_RANGE, "wrong PIN length", where);
    return padPin(pin, m_paddedLength, m_padChar);
}

void IASToken::cachePin(const Blob& pin, PinReference reference)
{
    if (reference == m_userReference)
        cacheUserPin(pin);
    else
        cacheSOPin(pin);
}

void IASToken::VerifyPIN(const Blob& pin, PinReference reference)
{
    if (!reference)
        throw PKCS11Exception(CKR_USER_PIN_NOT_INITIALIZED);
    const Blob padded = paddedPin(pin, "IASToken::VerifyPin"); // so spelled, deliberately
    makeCurrent();
    requireIASPinAccepted(sendVerify(pinCommand(kVerify, *reference), padded));
    cachePin(pin, reference);
}

void IASToken::ChangePIN(const Blob& oldPin, const Blob& newPin, PinReference reference)
{
    constexpr char kWhere[] = "IASToken::ChangePIN";
    // A new PIN that cannot go to the card as it is costs no try of the old one.
    if (reference && !padsPins())
        paddedPin(newPin, kWhere);
    VerifyPIN(oldPin, reference);
    const Blob data = paddedPin(oldPin, kWhere) + paddedPin(newPin, kWhere);
    if (data.size() > kMaxShortData)
        throw PKCS11Exception(CKR_PIN_LEN_RANGE, "", kWhere);
    requireIASPinAccepted(sendNewPin(pinCommand(kChangeReferenceData, *reference), data));
    cachePin(newPin, reference);
}

void IASToken::InitPIN(const Blob& pin)
{
    constexpr char kWhere[] = "IASToken::ChangePIN"; // its text, deliberately
    // A copy: a successful verification replaces the cached PIN.
    const Blob soPIN = soPin();
    if (soPIN.empty())
        throw PKCS11Exception(CKR_USER_NOT_LOGGED_IN);
    if (!m_userReference)
        throw PKCS11Exception(CKR_USER_PIN_NOT_INITIALIZED);
    if (!padsPins())
        paddedPin(pin, kWhere);
    VerifySOPIN(soPIN);
    requireSuccess(sendNewPin(pinCommand(kResetRetryCounter, *m_userReference), paddedPin(pin, kWhere)));
    cacheUserPin(pin);
}

} // namespace PKCS11
