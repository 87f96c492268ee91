#include "pkcs11/pcsc/WaitContext.h"

#include <utility>
#include <winscard.h>

namespace PKCS11 {

WaitContext::WaitContext(std::atomic<PCSCContext>& idle) : m_context(idle.exchange(0))
{
    m_wait.setContext(m_context);
}

long WaitContext::establish()
{
    if (m_context != 0)
        return SCARD_S_SUCCESS;
    const long result = SCardEstablishContext(SCARD_SCOPE_USER, nullptr, nullptr, &m_context);
    if (result != SCARD_S_SUCCESS)
        m_context = 0;
    m_wait.setContext(m_context);
    return result;
}

long WaitContext::release()
{
    m_wait.setContext(0);
    const PCSCContext context = std::exchange(m_context, 0);
    return context != 0 ? SCardReleaseContext(context) : SCARD_S_SUCCESS;
}

void WaitContext::giveBack(std::atomic<PCSCContext>& idle)
{
    PCSCContext none = 0;
    if (idle.compare_exchange_strong(none, m_context))
        m_context = 0;
}

} // namespace PKCS11
