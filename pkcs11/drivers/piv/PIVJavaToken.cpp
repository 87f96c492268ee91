#include "pkcs11/drivers/piv/PIVJavaToken.h"

#include "pkcs11/PKCS11Exception.h"
#include "pkcs11/drivers/piv/PIVContainers.h"
#include "pkcs11/drivers/piv/PIVJavaCertificate.h"
#include "pkcs11/drivers/piv/PIVJavaPrivateKey.h"
#include "pkcs11/drivers/piv/PIVJavaPublicKey.h"
#include "pkcs11/frontend/trace/Logger.h"
#include "pkcs11/pcsc/CardIdentification.h"
#include "pkcs11/pcsc/Command.h"
#include "pkcs11/pcsc/PCSCSlot.h"
#include "pkcs11/token/ASN1.h"
#include "pkcs11/token/ByteOrder.h"
#include "pkcs11/token/Framing.h"
#include "pkcs11/token/Hex.h"

#include <algorithm>
#include <iterator>

namespace PKCS11 {

namespace {

// Commands: CLA INS P1 P2, where data follow; the whole command otherwise.
constexpr char kSelectByNameNoAnswer[] = "00a4040c";
/// GET DATA of the container 5FC1xx; byte kContainerTag is the container's.
constexpr char kGetContainer[] = "00cb3fff055c035fc10500";
constexpr int kContainerTag = 9;
/// GENERAL AUTHENTICATE; byte 2 is the algorithm, byte 3 the key reference.
constexpr char kGeneralAuthenticate[] = "0087069a";
constexpr char kVerifyPin[] = "00200080";
constexpr char kVerifyPuk[] = "00200081";
constexpr char kChangePin[] = "00240080";
constexpr char kChangePuk[] = "00240081";
constexpr char kResetSecurity[] = "80a3000000";

/// RSA 1024 and 2048, ECC P-256 and P-384 (SP 800-78-5, table 9).
constexpr unsigned char kAlgorithms[] = {0x06, 0x07, 0x11, 0x14};

constexpr int kPinWidth = 8;
constexpr unsigned char kPinFill = 0xFF;

// Elements of the dynamic authentication template (SP 800-73-4, part 2, table 7).
constexpr int kAuthTemplate = 0x7C;
constexpr int kAuthChallenge = 0x81;
constexpr int kAuthResponse = 0x82;
/// A longer template goes in pieces of this length and a last one, which may be longer.
constexpr int kPiece = 249;

Blob pinBlock(const Blob& pin)
{
    return padPin(pin, kPinWidth, kPinFill);
}

/// Old and new PIN for CHANGE REFERENCE DATA.
Blob changeBlock(const Blob& oldPin, const Blob& newPin)
{
    // A new PIN that is too long is called wrong, not too long.
    if (newPin.size() > kPinWidth)
        throw PKCS11Exception(CKR_PIN_INCORRECT);
    return pinBlock(oldPin) + pinBlock(newPin);
}

PIVKeyPair makeKeyPair(PIVJavaToken& token, unsigned short word, const Blob& /*certificate*/)
{
    PIVKeyPair keys;
    keys.publicKey = std::make_unique<PIVJavaPublicKey>(token, word);
    keys.privateKey = std::make_unique<PIVJavaPrivateKey>(token, word);
    return keys;
}

} // namespace

PIVJavaToken::PIVJavaToken(PCSCSlot* slot) : PIVJavaToken(slot, makeKeyPair) {}

PIVJavaToken::PIVJavaToken(PCSCSlot* slot, KeyFactory makeKeys) : CardToken(slot)
{
    m_info.setLabel(Blob("PIV Profile"));
    PIVJavaToken::getID();
    SelectApp(PKCS11_hex2blob(PIV_AID));
    noteSelection();
    for (const PIVContainer& container : kPIVContainers)
        addContainer(container.tag, makeKeys);
}

Blob PIVJavaToken::getID()
{
    if (!m_manufacturer.empty())
        return m_manufacturer;
    const Blob atr = card().GetATR();
    Blob cardType;
    Blob manufacturer(card().GetOS(atr, cardType));
    if (!atr.empty())
        m_manufacturer = manufacturer;
    return manufacturer;
}

void PIVJavaToken::selectApplication()
{
    // Its answer is known: one command is enough where the card is content with it.
    Blob answer;
    const Blob command = GetShortAPDU(PKCS11_hex2blob(kSelectByName), PKCS11_hex2blob(PIV_AID));
    if (!isAccepted(card().SendCmdIntern(command, answer)))
        SelectApp(PKCS11_hex2blob(PIV_AID));
    noteSelection();
}

void PIVJavaToken::SelectApp(const Blob& aid)
{
    Blob answer;
    int sw = card().SendCmdChained(GetShortAPDU(PKCS11_hex2blob(kSelectByName), aid), answer);
    if (sw == SW_INCORRECT_P1P2)
        sw = card().SendCmdChained(GetShortAPDU(PKCS11_hex2blob(kSelectByNameNoAnswer), aid), answer);
    if (sw != SW_SUCCESS && sw != SW_SUCCESS_9001)
        throw PKCS11Exception(CKR_DEVICE_ERROR, "error select app", "PIVJavaToken::SelectApp");
}

Blob PIVJavaToken::readContainerData(unsigned char tag)
{
    Blob command = PKCS11_hex2blob(kGetContainer);
    command.at(kContainerTag) = tag;
    Blob answer;
    static_cast<void>(card().SendCmdChained(command, answer)); // nothing cuts to nothing
    return cutContainer(answer);
}

void PIVJavaToken::addContainer(unsigned char tag, KeyFactory makeKeys)
{
    const PIVPublicInfo info = readPublicInfo(readContainerData(tag));
    if (info.certificate.empty())
        return;
    Blob modulus;
    Blob exponent;
    if (getPublicKey(info.certificate, modulus, exponent)) {
        modulus = stripSignByte(modulus);
        exponent = stripSignByte(exponent);
    }
    const unsigned short word = getKeyRef(tag, 8 * modulus.size());

    auto certificate = std::make_unique<PIVJavaCertificate>(*this, word);
    certificate->setValue(info.certificate);
    PIVKeyPair keys = makeKeys(*this, word, info.certificate);
    const auto name = [&](auto& object) {
        if (!info.label.empty())
            object.setLabel(info.label);
        if (!info.id.empty())
            object.setID(info.id);
    };
    const auto describe = [&](auto& key) {
        name(key);
        if (exponent.empty()) // no RSA key in the certificate
            return key.initKeyType(CKK_EC);
        key.setModulus(modulus);
        key.setPublicExponent(exponent);
    };
    name(*certificate);
    describe(*keys.publicKey);
    describe(*keys.privateKey);
    add(std::move(certificate));
    add(std::move(keys.publicKey));
    add(std::move(keys.privateKey));
}

void PIVJavaToken::initMechanismList()
{
    mechanisms().add({CKM_RSA_PKCS, 2048, 512, CKF_HW | CKF_DECRYPT | CKF_SIGN});
    mechanisms().add({CKM_RSA_X_509, 2048, 512, CKF_HW | CKF_DECRYPT});
}

Blob PIVJavaToken::getCertLabel(unsigned char tag)
{
    for (const PIVContainer& container : kPIVContainers) {
        if (container.tag == tag)
            return Blob(container.certificateLabel);
    }
    return Blob("User Certificate");
}

Blob PIVJavaToken::getKeyLabel(unsigned short word)
{
    const bool isKnown =
        std::find(std::begin(kAlgorithms), std::end(kAlgorithms), word & 0xFF) != std::end(kAlgorithms);
    for (const PIVContainer& container : kPIVContainers) {
        if (isKnown && container.keyReference == word >> 8)
            return Blob(container.keyLabel);
    }
    return Blob("RSA Key");
}

Blob PIVJavaToken::GeneralAuth(unsigned short word, const Blob& data)
{
    Blob header = PKCS11_hex2blob(kGeneralAuthenticate);
    header.at(2) = static_cast<unsigned char>(word & 0xFF);
    header.at(3) = static_cast<unsigned char>(word >> 8);

    BERCoder request(kAuthTemplate);
    request.append(BERCoder(kAuthChallenge, data));
    request.append(BERCoder(kAuthResponse, Blob()));
    Blob field;
    request.Export(field);

    Blob answer;
    if (field.size() <= kPiece) {
        const int sw = card().SendCmdChained(GetShortAPDU(header, field), answer);
        // Not an error here: an empty answer ends as an empty result.
        if (!isAccepted(sw))
            Logger::LogFormat(Logger::kFailure, "GENERAL AUTHENTICATE failed: %04X",
                              static_cast<unsigned>(sw));
        return answer;
    }

    if (field.size() > kPiece + kMaxShortData && !takesLongChains())
        throw PKCS11Exception(CKR_DATA_LEN_RANGE, "", "PIVJavaToken::GeneralAuth");
    header.at(0) = kChained;
    int sent = 0;
    do {
        if (!isAccepted(card().Send(header, field.slice(sent, kPiece))))
            throw PKCS11Exception(CKR_DEVICE_ERROR, "GENERAL AUTHENTICATE first command failed",
                                  "PIVJavaToken::GeneralAuth");
        sent += kPiece;
    } while (field.size() - sent > kMaxShortData);
    header.at(0) = 0x00;
    if (!isAccepted(card().SendCmdChained(GetShortAPDU(header, field.slice(sent)), answer)))
        throw PKCS11Exception(CKR_DEVICE_ERROR, "GENERAL AUTHENTICATE last command failed",
                              "PIVJavaToken::GeneralAuth");
    return answer;
}

void PIVJavaToken::requireUserPin(const char* where) const
{
    if (userPin().empty())
        throw PKCS11Exception(CKR_USER_NOT_LOGGED_IN, "", where);
}

void PIVJavaToken::verify(const char* header, const Blob& pin)
{
    const Blob block = pinBlock(pin);
    requirePinAccepted(sendVerify(PKCS11_hex2blob(header), block));
}

void PIVJavaToken::VerifyPIN(const Blob& pin)
{
    verify(kVerifyPin, pin);
    cacheUserPin(pin);
}

void PIVJavaToken::VerifySOPIN(const Blob& pin)
{
    verify(kVerifyPuk, pin);
    cacheSOPin(pin);
}

void PIVJavaToken::SetPIN(const Blob& oldPin, const Blob& newPin)
{
    VerifyPIN(oldPin);
    requireSuccess(sendNewPin(PKCS11_hex2blob(kChangePin), changeBlock(oldPin, newPin)));
    cacheUserPin(newPin);
}

void PIVJavaToken::SetSOPIN(const Blob& oldPin, const Blob& newPin)
{
    VerifySOPIN(oldPin);
    requireSuccess(sendNewPin(PKCS11_hex2blob(kChangePuk), changeBlock(oldPin, newPin)));
    cacheSOPin(newPin);
}

void PIVJavaToken::ResetSecurity()
{
    forgetPins();
    // Whatever the card says: the PINs are gone here.
    static_cast<void>(card().SendCmd(PKCS11_hex2blob(kResetSecurity)));
}

} // namespace PKCS11
