#include "tools/vcard/Pin.h"

#include "tools/vcard/Bytes.h"
#include "tools/vcard/IsoCard.h"

#include <algorithm>
#include <utility>

namespace vcard {

namespace {

constexpr int kTries = 3;

} // namespace

Bytes pinBlock(const std::string& pin, unsigned char filler)
{
    Bytes block = fromText(pin);
    block.resize(kPinBlock, filler);
    return block;
}

bool isPinBlock(const Bytes& block, std::ptrdiff_t fewest)
{
    const auto isDigit = [](unsigned char byte) { return byte >= '0' && byte <= '9'; };
    const auto end = std::find_if_not(block.begin(), block.end(), isDigit);
    return block.size() == kPinBlock && end - block.begin() >= fewest &&
           std::all_of(end, block.end(), [](unsigned char byte) { return byte == 0xFF; });
}

Pin::Pin(Bytes value) : m_value(std::move(value)), m_left(kTries) {}

unsigned short Pin::verify(const Bytes& presented)
{
    const auto left = [this] { return static_cast<unsigned short>(sw::retriesLeft | (m_left & 0x0F)); };
    if (blocked())
        return sw::blocked;
    if (presented.empty())
        return m_verified ? sw::ok : left();
    m_verified = presented == m_value;
    m_left = m_verified ? kTries : m_left - 1;
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
    m_left = kTries;
    if (!fresh.empty())
        m_value = std::move(fresh);
}

} // namespace vcard
