#include "pkcs11/desktop/DesktopSystem.h"

#include "pkcs11/PKCS11Exception.h"

#include <winscard.h>

namespace PKCS11 {

bool isContextLost(long result)
{
    return result == SCARD_E_NO_SERVICE || result == SCARD_E_SERVICE_STOPPED ||
           result == SCARD_E_INVALID_HANDLE;
}

DesktopSystem::DesktopSystem() : PCSCSystem(WithoutContext())
{
    renew();
}

bool DesktopSystem::renew()
{
    if (m_context != 0)
        SCardReleaseContext(m_context);
    m_context = 0;
    try {
        establish();
        return true;
    } catch (const PKCS11Exception&) {
        m_context = 0;
        return false; // the next call asks again
    }
}

std::vector<std::string> DesktopSystem::listReaders()
{
    std::vector<std::string> readers;
    if (isContextLost(queryReaders(m_context, readers)) && renew())
        queryReaders(m_context, readers);
    return readers;
}

long DesktopSystem::readState(const std::string& reader, ReaderState& state)
{
    long result = PCSCSystem::readState(reader, state);
    if (isContextLost(result) && renew())
        result = PCSCSystem::readState(reader, state);
    if (isContextLost(result) || result == SCARD_E_UNKNOWN_READER || result == SCARD_E_READER_UNAVAILABLE) {
        state = {SCARD_STATE_UNKNOWN, {}};
        return SCARD_S_SUCCESS;
    }
    return result;
}

} // namespace PKCS11
