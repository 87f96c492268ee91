#include "pkcs11/pcsc/Slot.h"

#include "pkcs11/Edition.h"
#include "pkcs11/PKCS11Exception.h"
#include "pkcs11/core/Session.h"
#include "pkcs11/frontend/PKCS11Wrapper.h"
#include "pkcs11/token/Token.h"

#include <algorithm>
#include <iterator>
#include <winscard.h>

namespace PKCS11 {

Slot::Slot(PKCS11Wrapper* wrapper) : m_info{}, m_wrapper(wrapper)
{
    std::fill(std::begin(m_info.slotDescription), std::end(m_info.slotDescription), ' ');
    std::fill(std::begin(m_info.manufacturerID), std::end(m_info.manufacturerID), ' ');
}

Slot::~Slot() = default;

CK_SLOT_INFO Slot::getInfo()
{
    if (isTokenPresent())
        m_info.flags |= CKF_TOKEN_PRESENT;
    else
        m_info.flags &= ~static_cast<CK_FLAGS>(CKF_TOKEN_PRESENT);
    return m_info;
}

std::string Slot::getSlotDescription() const
{
    // The 64th character is always left out, and a text with nothing after its first character is not cut.
    std::string text(std::begin(m_info.slotDescription), std::prev(std::end(m_info.slotDescription)));
    const std::size_t last = text.find_last_not_of(' ');
    if (last != std::string::npos && last > 0)
        text.resize(last + 1);
    return text;
}

Token* Slot::getToken()
{
    dropTokenOfOtherCard();
    if (isTokenPresent())
        return tokenOfThisCard();
    if (m_token == nullptr)
        throw PKCS11Exception(CKR_TOKEN_NOT_PRESENT);
    dropToken(SCARD_E_NO_SMARTCARD);
    throw PKCS11Exception(CKR_DEVICE_REMOVED);
}

Token* Slot::getTokenOfPresentCard()
{
    dropTokenOfOtherCard();
    return tokenOfThisCard();
}

Token* Slot::tokenOfThisCard()
{
    if (m_token)
        return m_token.get();
    m_token = createToken();
    if (m_token == nullptr)
        throw PKCS11Exception(CKR_TOKEN_NOT_RECOGNIZED);
    m_token->Logout();
    return m_token.get();
}

void Slot::dropTokenOfOtherCard()
{
    long status = SCARD_S_SUCCESS;
    if (m_token && !m_token->isTokenHandleValid(status))
        dropToken(status);
}

bool Slot::hasValidTokenHandle()
{
    long result = 0;
    return m_token && m_token->isTokenHandleValid(result);
}

void Slot::dropToken(long status)
{
    if (m_wrapper != nullptr)
        m_wrapper->closeAllSessions(this);
    if (m_wrapper != nullptr && m_wrapper->sessions() != nullptr && Edition::current().endsSessions(status))
        m_wrapper->sessions()->endAllSessions(this);
    deleteToken();
}

void Slot::deleteToken()
{
    m_token.reset();
}

Slot::SessionCounts Slot::countSessions() const
{
    SessionCounts counts;
    const SessionList* sessions = m_wrapper != nullptr ? m_wrapper->sessions() : nullptr;
    if (sessions == nullptr)
        return counts;
    for (unsigned long handle = 1; handle <= sessions->highWater(); ++handle) {
        const Session* session = sessions->peekSession(handle);
        if (session == nullptr || session->slot() != this || session->hasEnded())
            continue;
        ++counts.all;
        if ((session->flags() & CKF_RW_SESSION) != 0)
            ++counts.readWrite;
    }
    return counts;
}

void Slot::logoutLastSession()
{
    if (m_token && countSessions().all == 1)
        m_token->Logout();
}

void Slot::updateSessionCount()
{
    if (m_token == nullptr)
        return;
    const SessionCounts counts = countSessions();
    m_token->setSessionCounts(counts.all, counts.readWrite);
}

void Slot::endOperations(const Object* object)
{
    if (m_wrapper != nullptr && m_wrapper->sessions() != nullptr)
        m_wrapper->sessions()->endOperations(object);
}

} // namespace PKCS11
