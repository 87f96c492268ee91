#include "pkcs11/core/Session.h"

#include "pkcs11/Edition.h"
#include "pkcs11/PKCS11Exception.h"
#include "pkcs11/core/Arguments.h"
#include "pkcs11/pcsc/Slot.h"
#include "pkcs11/token/Token.h"

namespace PKCS11 {

namespace {

/// In bytes; no card takes a PIN near this.
constexpr CK_ULONG kMaxPinLength = 64UL * 1024;

/// The state of a session with these flags on the token.
CK_STATE stateOn(const Token& token, CK_FLAGS flags)
{
    if ((flags & CKF_RW_SESSION) == 0)
        return token.isUserLoggedIn() ? CKS_RO_USER_FUNCTIONS : CKS_RO_PUBLIC_SESSION;
    if (token.isUserLoggedIn())
        return CKS_RW_USER_FUNCTIONS;
    return token.isSOLoggedIn() ? CKS_RW_SO_FUNCTIONS : CKS_RW_PUBLIC_SESSION;
}

void refuseEmpty(const Blob& pin, const char* where)
{
    if (pin.empty() && Edition::current().refusesEmptyPin())
        throw PKCS11Exception(CKR_PIN_INCORRECT, "", where);
}

} // namespace

Session::Session() = default;

Session::~Session() = default;

// --- Life ----------------------------------------------------------------------------------------

void Session::openSession(Slot* slot, CK_SLOT_ID slotID, CK_FLAGS flags, void* /*pApplication*/,
                          CK_NOTIFY /*notify*/)
{
    m_slot = slot;
    if ((flags & CKF_SERIAL_SESSION) == 0)
        throw PKCS11Exception(CKR_SESSION_PARALLEL_NOT_SUPPORTED, "flags not CKF_SERIAL_SESSION",
                              "Session::openSession");
    m_flags = CKF_SERIAL_SESSION | (flags & CKF_RW_SESSION);
    refreshState();
    m_slotID = slotID;
    m_paused = false;
}

void Session::closeSession()
{
    if (m_paused)
        return;
    cleanMechanism();
    m_search.rewind();
    m_paused = true;
    m_token = nullptr;
    if (m_slot != nullptr)
        m_slot->logoutLastSession();
}

void Session::reopenSession()
{
    if (m_paused)
        getToken();
}

void Session::cleanMechanism()
{
    m_operation.reset();
    m_operationObject = nullptr;
}

Token* Session::getToken()
{
    if (m_slot == nullptr)
        throw PKCS11Exception(CKR_FUNCTION_FAILED);
    if (m_token != nullptr)
        return m_token;
    Token* const token = m_slot->getToken();
    if (m_hasEnded)
        throw PKCS11Exception(CKR_DEVICE_REMOVED);
    m_token = token;
    // An operation may only live in a session that the next change of cards will pause again.
    if (m_paused) {
        m_state = stateOn(*m_token, m_flags);
        m_paused = false;
    }
    return m_token;
}

// --- State ---------------------------------------------------------------------------------------

CK_STATE Session::getSessionState(CK_FLAGS flags)
{
    return stateOn(*getToken(), flags);
}

CK_STATE Session::refreshState()
{
    m_state = getSessionState(m_flags);
    return m_state;
}

CK_SESSION_INFO Session::getSessionInfo()
{
    refreshState();
    return {m_slotID, m_state, m_flags, m_deviceError};
}

bool Session::canAccessPrivate()
{
    const CK_STATE state = refreshState();
    if (state == CKS_RO_USER_FUNCTIONS || state == CKS_RW_USER_FUNCTIONS)
        return true;
    return (getToken()->getInfo().flags & CKF_LOGIN_REQUIRED) == 0;
}

void Session::requireReadWrite(const char* where) const
{
    if (isReadOnly())
        throw PKCS11Exception(CKR_SESSION_READ_ONLY, "CKR_SESSION_READ_ONLY", where);
}

// --- Login ---------------------------------------------------------------------------------------

void Session::login(CK_USER_TYPE userType, const CK_BYTE* pPin, CK_ULONG ulPinLen)
{
    constexpr char kWhere[] = "Session::login";
    Token* token = getToken();
    const CK_STATE state = refreshState();
    const bool userLoggedIn = token->isUserLoggedIn();
    // The session's type is wrong rather than its access, deliberately.
    if (userType == CKU_SO && isReadOnly())
        throw PKCS11Exception(CKR_USER_TYPE_INVALID, "CKR_USER_TYPE_INVALID", kWhere);
    // The token's own mark counts: a read-only session does not see the SO.
    if ((userType == CKU_SO && userLoggedIn) || (userType == CKU_USER && token->isSOLoggedIn()))
        throw PKCS11Exception(CKR_USER_ANOTHER_ALREADY_LOGGED_IN, "CKR_USER_ANOTHER_ALREADY_LOGGED_IN",
                              kWhere);
    if (userLoggedIn || state == CKS_RW_SO_FUNCTIONS)
        throw PKCS11Exception(CKR_USER_ALREADY_LOGGED_IN, "CKR_USER_ALREADY_LOGGED_IN", kWhere);
    if (userType != CKU_SO && userType != CKU_USER)
        throw PKCS11Exception(CKR_USER_TYPE_INVALID, "", kWhere);
    if (ulPinLen > kMaxPinLength)
        throw PKCS11Exception(CKR_PIN_LEN_RANGE, "", kWhere);

    const Blob pin = Blob::fromMemory(pPin, ulPinLen);
    refuseEmpty(pin, kWhere);
    if (userType == CKU_SO)
        token->LoginSO(pin);
    else
        token->Login(pin);
    refreshState();
}

void Session::logout()
{
    const CK_STATE state = refreshState();
    if (state == CKS_RO_PUBLIC_SESSION || state == CKS_RW_PUBLIC_SESSION)
        throw PKCS11Exception(CKR_USER_NOT_LOGGED_IN, "CKR_USER_NOT_LOGGED_IN", "Session::logout");
    getToken()->Logout();
    refreshState();
}

void Session::initPIN(const Blob& pin)
{
    constexpr char kWhere[] = "Session::initPIN";
    const CK_STATE state = refreshState();
    requireReadWrite(kWhere);
    if (state != CKS_RW_SO_FUNCTIONS)
        throw PKCS11Exception(CKR_USER_NOT_LOGGED_IN, "CKR_USER_NOT_LOGGED_IN", kWhere);
    getToken()->InitPIN(pin);
}

void Session::setPIN(const Blob& oldPin, const Blob& newPin)
{
    constexpr char kWhere[] = "Session::setPIN";
    Token* token = getToken();
    requireReadWrite(kWhere);
    refuseEmpty(oldPin, kWhere);
    // The state as the session last saw it, deliberately.
    if (m_state == CKS_RW_SO_FUNCTIONS)
        token->SetSOPIN(oldPin, newPin);
    else
        token->SetPIN(oldPin, newPin);
}

// --- Random numbers ------------------------------------------------------------------------------

Token& Session::tokenForRandom(const char* where)
{
    if (m_slot == nullptr)
        throw PKCS11Exception(CKR_FUNCTION_NOT_SUPPORTED, "", where);
    return *getToken();
}

void Session::seedRandom(CK_BYTE* pSeed, CK_ULONG ulSeedLen)
{
    Token& token = tokenForRandom("Session::seedRandom");
    requireBuffer(pSeed, ulSeedLen);
    token.seedRandom(pSeed, ulSeedLen);
}

void Session::generateRandom(CK_BYTE* pRandom, CK_ULONG ulRandomLen)
{
    Token& token = tokenForRandom("Session::generateRandom");
    requireBuffer(pRandom, ulRandomLen);
    token.generateRandom(pRandom, ulRandomLen);
}

} // namespace PKCS11
