#include "tools/vcard/Pin.h"

#include "tools/vcard/IsoCard.h"

#include <utility>

namespace vcard {

Pin::Pin(Bytes value, int tries) : m_value(std::move(value)), m_tries(tries), m_left(tries) {}

unsigned short Pin::verify(const Bytes& presented)
{
    const auto left = [this] { return static_cast<unsigned short>(sw::retriesLeft | (m_left & 0x0F)); };
    if (blocked())
        return sw::blocked;
    if (presented.empty())
        return m_verified ? sw::ok : left();
    m_verified = presented == m_value;
    m_left = m_verified ? m_tries : m_left - 1;
    return m_verified ? sw::ok : left();
}

unsigned short Pin::change(const Bytes& presented, Bytes fresh)
{
    if (presented.empty())
        return sw::wrongLength;
    const unsigned short status = verify(presented);
    if (status == sw::ok)
        m_value = std::move(fresh);
    return status;
}

unsigned short Pin::changeVerified(Bytes fresh)
{
    if (!m_verified)
        return sw::securityStatusNotSatisfied;
    m_value = std::move(fresh);
    return sw::ok;
}

void Pin::unblock(Bytes fresh)
{
    m_left = m_tries;
    if (!fresh.empty())
        m_value = std::move(fresh);
}

} // namespace vcard
