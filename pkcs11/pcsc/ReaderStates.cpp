#include "pkcs11/pcsc/ReaderStates.h"

#include "pkcs11/pcsc/WaitContext.h"

#include <utility>

namespace PKCS11 {

ReaderStates::ReaderStates(std::vector<std::string> readers) : m_readers(std::move(readers))
{
    for (const std::string& reader : m_readers) {
        SCARD_READERSTATE state{};
        state.szReader = reader.c_str();
        m_states.push_back(state);
    }
}

long ReaderStates::getStatusChange(WaitContext& wait, PCSCWord timeout)
{
    return SCardGetStatusChange(wait.context(), timeout, m_states.data(), m_states.size());
}

void ReaderStates::makeCurrent()
{
    for (SCARD_READERSTATE& state : m_states)
        state.dwCurrentState = state.dwEventState;
}

} // namespace PKCS11
