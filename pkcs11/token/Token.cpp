#include "pkcs11/token/Token.h"

#include "pkcs11/PKCS11Exception.h"
#include "pkcs11/core/Mechanism.h"
#include "pkcs11/core/Template.h"
#include "pkcs11/pcsc/PCSCSlot.h"

#include <algorithm>

namespace PKCS11 {

namespace {

constexpr CK_ULONG kMaxSessions = 100;
constexpr CK_ULONG kMaxRwSessions = 10;
constexpr CK_ULONG kMaxPinLen = 10;
constexpr CK_ULONG kMinPinLen = 4;
/// Of a PIN that a short command brings to the card.
constexpr int kMaxPinBytes = 255;

/// The text with its terminator, then blanks: applications see the zero byte until a driver fills the field.
template <std::size_t Size, std::size_t TextSize>
void fill(unsigned char (&field)[Size], const char (&text)[TextSize])
{
    static_assert(TextSize <= Size);
    std::fill(std::copy_n(text, TextSize, field), field + Size, ' ');
}

CK_TOKEN_INFO defaultTokenInfo()
{
    CK_TOKEN_INFO info{};
    fill(info.label, "unkown token"); // the word is spelled so
    fill(info.manufacturerID, "unkown");
    fill(info.model, "unkown");
    fill(info.serialNumber, "unkown");
    fill(info.utcTime, "unkown");
    info.ulMaxSessionCount = kMaxSessions;
    info.ulMaxRwSessionCount = kMaxRwSessions;
    info.ulMaxPinLen = kMaxPinLen;
    info.ulMinPinLen = kMinPinLen;
    info.ulTotalPublicMemory = CK_UNAVAILABLE_INFORMATION;
    info.ulFreePublicMemory = CK_UNAVAILABLE_INFORMATION;
    info.ulTotalPrivateMemory = CK_UNAVAILABLE_INFORMATION;
    info.ulFreePrivateMemory = CK_UNAVAILABLE_INFORMATION;
    return info;
}

/// Wipes in place: the memory stays, so that a new PIN that the card has taken needs none and is kept.
void replacePin(Blob& cached, const Blob& pin)
{
    if (&pin == &cached)
        return;
    cleanse(cached.data(), static_cast<std::size_t>(cached.size()));
    cached.clear();
    cached.append(pin);
}

} // namespace

Token::Token(PCSCSlot* slot) : m_tokenInfo(defaultTokenInfo()), m_slot(slot)
{
    m_userPin.reserve(kMaxPinBytes);
    m_soPin.reserve(kMaxPinBytes);
    if (m_slot != nullptr)
        m_slot->CreateChannel();
}

Token::~Token()
{
    if (m_slot != nullptr)
        m_slot->CloseChannel();
}

void Token::Login(const Blob& pin)
{
    VerifyPIN(pin);
    cacheUserPin(pin);
    m_userLoggedIn = true;
}

void Token::LoginSO(const Blob& pin)
{
    VerifySOPIN(pin);
    cacheSOPin(pin);
    m_soLoggedIn = true;
}

void Token::Logout()
{
    forgetPins();
    m_userLoggedIn = false;
    m_soLoggedIn = false;
}

std::unique_ptr<Object> Token::copyObject(Object* /*original*/, CK_ATTRIBUTE* /*attributes*/,
                                          CK_ULONG /*count*/)
{
    throw PKCS11Exception(CKR_FUNCTION_NOT_SUPPORTED);
}

void Token::setSpeFlag()
{
    m_tokenInfo.flags = CKF_PROTECTED_AUTHENTICATION_PATH;
}

CK_RV Token::CheckPin(const Blob& pin)
{
    if (!pin.empty())
        VerifyPIN(pin);
    else if ((m_tokenInfo.flags & CKF_PROTECTED_AUTHENTICATION_PATH) == 0 || !m_userLoggedIn)
        throw PKCS11Exception(CKR_USER_NOT_LOGGED_IN);
    return CKR_OK;
}

bool Token::isTokenHandleValid(long& rv)
{
    if (m_slot == nullptr)
        return false;
    rv = m_slot->cardStatus();
    return rv == 0;
}

Object* Token::getObject(CK_OBJECT_HANDLE handle)
{
    const bool canAccessPrivate = m_userLoggedIn || (getInfo().flags & CKF_LOGIN_REQUIRED) == 0;
    return m_objectList.getObject(handle, canAccessPrivate);
}

std::unique_ptr<Object> Token::createObject(CK_ATTRIBUTE* attributes, CK_ULONG count)
{
    CK_OBJECT_CLASS objectClass = 0;
    if (!findObjectClass(attributes, count, objectClass))
        throw PKCS11Exception(CKR_ATTRIBUTE_VALUE_INVALID);
    switch (objectClass) {
    case CKO_DATA:
        return createData(attributes, count);
    case CKO_CERTIFICATE:
        return createCertificate(attributes, count);
    case CKO_PUBLIC_KEY:
        return createPublicKey(attributes, count);
    case CKO_PRIVATE_KEY:
        return createPrivateKey(attributes, count);
    case CKO_SECRET_KEY:
        return createSecretKey(attributes, count);
    default:
        throw PKCS11Exception(CKR_ATTRIBUTE_VALUE_INVALID);
    }
}

void Token::setSessionCounts(CK_ULONG sessions, CK_ULONG rwSessions)
{
    m_tokenInfo.ulSessionCount = sessions;
    m_tokenInfo.ulRwSessionCount = rwSessions;
}

void Token::cacheUserPin(const Blob& pin)
{
    replacePin(m_userPin, pin);
}

void Token::cacheSOPin(const Blob& pin)
{
    replacePin(m_soPin, pin);
}

void Token::forgetPins()
{
    replacePin(m_userPin, {});
    replacePin(m_soPin, {});
}

} // namespace PKCS11
