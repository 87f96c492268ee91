#include "pkcs11/drivers/cardos/CardOSOperation.h"

#include "pkcs11/Edition.h"
#include "pkcs11/PKCS11Exception.h"
#include "pkcs11/drivers/cardos/CardOSPublicKey.h"
#include "pkcs11/drivers/cardos/CardOSToken.h"
#include "pkcs11/pcsc/PCSCSlot.h"
#include "pkcs11/token/Framing.h"
#include "pkcs11/token/Hex.h"

namespace PKCS11 {

namespace {

// Security environments: before V5.0 a stored one is restored and then pointed at the key.
constexpr char kRestoreEnvironment[] = "0022034000";
constexpr char kUsePrivateKey[] = "0022f1b80383010100";
constexpr char kUseLoadedKey[] = "002201b80383010200";

// PUT DATA of a key object, between two commands that open and close the loading.
constexpr char kBracketLoading[] = "80100000";
constexpr char kPutKeyObject[] = "00da016e";
constexpr char kModulusObject[] = "83022002850821000c0fffff0000860801010101010101018f";
constexpr char kExponentObject[] = "83022102850801000c0fffff0000860801010101010101018f";

// PERFORM SECURITY OPERATION: CLA INS P1 P2.
constexpr char kDecipher[] = "002a8086";
constexpr char kEncipher[] = "002a8680";
constexpr unsigned char kPaddingIndicator = 0x00;
/// Longest data field of a short command; above it the command is an extended one.
constexpr int kLongestShortField = 249;
constexpr unsigned char kLeMaximum = 0x00;

/// The length modulo 256.
unsigned char lengthByte(int length)
{
    return static_cast<unsigned char>(length & 0xFF);
}

} // namespace

CardOSOperation::CardOSOperation(CardOSToken& token, int index, CK_MECHANISM_TYPE type, const char* where)
    : m_token(token), m_index(index), m_type(type), m_where(where)
{
}

void CardOSOperation::requireLogin() const
{
    m_token.requireLogin(m_where);
}

void CardOSOperation::selectKeyDF() const
{
    require(m_token.selectKeyDF(m_index));
}

int CardOSOperation::send(const char* command) const
{
    return m_token.card().SendCmd(PKCS11_hex2blob(command));
}

void CardOSOperation::require(int sw) const
{
    requireSuccess(sw, "", m_where);
}

Blob CardOSOperation::perform(const char* header, const Blob& field) const
{
    Blob command = PKCS11_hex2blob(header);
    if (field.size() > kLongestShortField) {
        command = GetExtendedAPDU(command, field, 0);
    } else {
        command = GetShortAPDU(command, field);
        command.push_back(kLeMaximum);
    }
    Blob answer;
    require(m_token.card().SendCmdChained(command, answer));
    return answer;
}

int CardOSPrivateKeyOperation::prepare(const char* environmentV50) const
{
    token().replayUserPin();
    selectKeyDF();
    if (token().isV50()) {
        // This text for decryption too.
        requireSuccess(send(environmentV50), "", "CardOSMechanismSign::decrypt");
        return SW_SUCCESS;
    }
    const int sw = send(kRestoreEnvironment);
    if (sw == SW_SUCCESS)
        require(send(kUsePrivateKey));
    return sw;
}

Blob CardOSPrivateKeyOperation::decipher(const Blob& block) const
{
    return perform(kDecipher, Blob(1, kPaddingIndicator) + block);
}

CardOSPublicKeyOperation::CardOSPublicKeyOperation(CardOSPublicKey& key, CK_MECHANISM_TYPE type,
                                                   const char* where)
    : CardOSOperation(key.token(), key.index(), type, where), m_key(key)
{
}

Blob CardOSPublicKeyOperation::CreateCCMS(const Blob& value)
{
    const Blob number = value.empty() || value.front() == 0x00 ? value : Blob(1, 0x00) + value;
    return Blob(1, lengthByte(number.size())) + number;
}

bool CardOSPublicKeyOperation::loadsKey() const
{
    return !token().isV50();
}

void CardOSPublicKeyOperation::prepare() const
{
    if (!loadsKey()) {
        token().requireApplication();
        selectKeyDF();
        require(send(kUseCipherKeyV50));
        return;
    }
    // Read before the card is made ready: reading selects other files.
    const Blob modulus = m_key.getModulus();
    const Blob exponent = m_key.getPublicExponent();
    if (modulus.empty())
        throw PKCS11Exception(CKR_DEVICE_ERROR, "", where());
    token().showLostUserPin();
    token().requireApplication();
    selectKeyDF();
    loadKey(modulus, exponent);
    require(send(kRestoreEnvironment));
    require(send(kUseLoadedKey));
}

void CardOSPublicKeyOperation::loadKey(const Blob& modulus, const Blob& exponent) const
{
    try {
        writeKey(modulus, exponent);
    } catch (const PKCS11Exception& failure) {
        if (failure.value() == CKR_GENERAL_ERROR) // nobody knows what reached the card
            token().card().forceReset();
        throw;
    } catch (...) { // no memory to close with
        token().card().forceReset();
        throw;
    }
}

void CardOSPublicKeyOperation::writeKey(const Blob& modulus, const Blob& exponent) const
{
    PCSCSlot& card = token().card();
    const PCSCSlot::CardMark before = card.cardMark();
    require(send(kBracketLoading));
    const PCSCSlot::CardMark opened = card.cardMark();
    const auto isOpen = [&] { return card.isUndisturbedSince(opened); };
    const auto close = [&] {
        const int sw = send(kBracketLoading);
        if (!isOpen()) // a reset closed before, and the command that was repeated after it has opened
            card.forceReset();
        return sw;
    };
    try {
        loadComponent(kModulusObject, modulus);
        loadComponent(kExponentObject, exponent);
        require(close());
    } catch (const PKCS11Exception& failure) {
        // A card that stays open computes nothing; only one that refuses to load is left so.
        const bool refuses = card.isUndisturbedSince(before) && !Edition::current().closesRefusedLoading();
        if (failure.value() != CKR_GENERAL_ERROR && isOpen() && !refuses)
            static_cast<void>(close());
        throw;
    }
}

void CardOSPublicKeyOperation::loadComponent(const char* objectTemplate, const Blob& value) const
{
    const Blob number = CreateCCMS(value);
    const Blob field = PKCS11_hex2blob(objectTemplate) + Blob(1, lengthByte(number.size())) + number;
    // Lc wraps modulo 256 like the two length bytes within.
    require(token().card().Send(PKCS11_hex2blob(kPutKeyObject), field));
}

Blob CardOSPublicKeyOperation::encipher(const Blob& field) const
{
    return token().whole([&] {
        prepare();
        return perform(kEncipher, field);
    });
}

} // namespace PKCS11
