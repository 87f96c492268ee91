#include "tools/vcard/IsoCard.h"

#include <algorithm>
#include <bitset>
#include <optional>

namespace vcard {

namespace {

constexpr unsigned char kChainingBit = 0x10;
constexpr unsigned char kInsGetResponse = 0xC0;
constexpr size_t kLongestChain = 0x10000;

Bytes answer(Bytes data, unsigned short status)
{
    data.push_back(static_cast<unsigned char>(status >> 8));
    data.push_back(static_cast<unsigned char>(status));
    return data;
}

/// The low byte that stands for a length: 00 for 256 and more.
unsigned short lengthByte(size_t length)
{
    return static_cast<unsigned short>(length >= 256 ? 0 : length);
}

void setLe(Command& command, size_t coded, size_t maximum)
{
    command.hasLe = true;
    command.leIsMaximum = coded == 0;
    command.le = coded == 0 ? maximum : coded;
}

/// The seven forms of ISO 7816-3: no body, Le, Lc and data, Lc and data and Le, and the last three extended.
std::optional<Command> parse(const Bytes& bytes)
{
    if (bytes.size() < 4)
        return std::nullopt;
    Command command;
    command.cla = bytes[0];
    command.ins = bytes[1];
    command.p1 = bytes[2];
    command.p2 = bytes[3];
    const size_t body = bytes.size() - 4;
    if (body == 0)
        return command;
    if (body == 1) {
        setLe(command, bytes[4], 256);
        return command;
    }
    command.extended = bytes[4] == 0;
    const size_t lengthField = command.extended ? 3 : 1;
    const size_t leField = command.extended ? 2 : 1;
    if (body < lengthField)
        return std::nullopt;
    const size_t coded = command.extended ? static_cast<size_t>(bytes[5]) << 8 | bytes[6] : bytes[4];
    if (command.extended && body == lengthField) {
        setLe(command, coded, 65536);
        return command;
    }
    if (coded == 0 || (body != lengthField + coded && body != lengthField + coded + leField))
        return std::nullopt;
    const auto data = bytes.begin() + 4 + static_cast<std::ptrdiff_t>(lengthField);
    command.data.assign(data, data + static_cast<std::ptrdiff_t>(coded));
    if (body > lengthField + coded) {
        size_t le = 0;
        std::for_each(data + static_cast<std::ptrdiff_t>(coded), bytes.end(),
                      [&le](unsigned char byte) { le = le << 8 | byte; });
        setLe(command, le, command.extended ? 65536 : 256);
    }
    return command;
}

unsigned short classRefusal(unsigned char cla)
{
    if (cla == 0xFF)
        return sw::claNotSupported;
    if (cla >= 0x80)
        return sw::ok;
    if ((cla & 0xE0) != 0 || (cla & 0x03) != 0)
        return sw::channelNotSupported;
    return (cla & 0x0C) != 0 ? sw::secureMessagingNotSupported : sw::ok;
}

bool isChained(unsigned char cla)
{
    return cla < 0x80 && (cla & kChainingBit) != 0;
}

} // namespace

Bytes makeAtr(const Bytes& historicalBytes, bool t0)
{
    const auto count = static_cast<unsigned char>(std::min<size_t>(historicalBytes.size(), 15));
    Bytes atr = {0x3B, count};
    if (!t0) {
        atr[1] |= 0x80;
        atr.push_back(0x01);
    }
    atr.insert(atr.end(), historicalBytes.begin(), historicalBytes.begin() + count);
    if (!t0) {
        unsigned char check = 0;
        std::for_each(atr.begin() + 1, atr.end(), [&check](unsigned char byte) { check ^= byte; });
        atr.push_back(check);
    }
    return atr;
}

bool isT0(const Bytes& atr)
{
    const size_t interface = std::bitset<3>(atr.at(1) >> 4U).count(); // TA1, TB1 and TC1 come before TD1
    return (atr[1] & 0x80) == 0 || (atr.at(2 + interface) & 0x0F) == 0;
}

IsoCard::IsoCard(Bytes atr) : m_atr(std::move(atr)), m_isT0(isT0(m_atr)) {}

void IsoCard::reset()
{
    m_chaining = false;
    m_waiting.clear();
    onReset();
}

Response IsoCard::malformed(const Bytes&)
{
    return sw::wrongLength;
}

Bytes IsoCard::transmit(const Bytes& bytes)
{
    const std::optional<Command> command = parse(bytes);
    if (command && command->cla == 0x00 && command->ins == kInsGetResponse && !m_chaining)
        return getResponse(*command);
    m_waiting.clear();
    if (!command) {
        m_chaining = false;
        Response response = malformed(bytes);
        return answer(std::move(response.data), response.sw);
    }
    if (const unsigned short refusal = classRefusal(command->cla); refusal != sw::ok) {
        m_chaining = false;
        return answer({}, refusal);
    }
    return m_chaining || isChained(command->cla) ? joinChain(*command) : deal(*command, process(*command));
}

Bytes IsoCard::joinChain(Command piece)
{
    const bool last = !isChained(piece.cla);
    piece.cla = static_cast<unsigned char>(piece.cla & ~kChainingBit);
    if (!last && piece.hasLe) { // there is nothing to give yet
        m_chaining = false;
        return answer({}, sw::wrongLength);
    }
    if (!m_chaining) {
        m_chain = piece;
        m_chain.data.clear();
    }
    const bool same = piece.cla == m_chain.cla && piece.ins == m_chain.ins && piece.p1p2() == m_chain.p1p2();
    m_chaining = same && !last && m_chain.data.size() + piece.data.size() <= kLongestChain;
    if (!same)
        return answer({}, sw::lastOfChainExpected);
    m_chain.data.insert(m_chain.data.end(), piece.data.begin(), piece.data.end());
    if (!last)
        return answer({}, m_chaining ? sw::ok : sw::wrongLength);
    piece.data = std::exchange(m_chain.data, {});
    return deal(piece, process(piece));
}

Bytes IsoCard::getResponse(const Command& command)
{
    if (command.p1p2() != 0)
        return answer({}, sw::wrongP1P2);
    if (!command.data.empty() || !command.hasLe)
        return answer({}, sw::wrongLength);
    if (m_waiting.empty())
        return answer({}, sw::conditionsNotSatisfied);
    if (command.le > m_waiting.size() && (m_isT0 || !command.leIsMaximum))
        return answer({}, static_cast<unsigned short>(sw::exactLength | lengthByte(m_waiting.size())));
    return handOut(command.le);
}

Bytes IsoCard::deal(const Command& command, Response response)
{
    if (response.data.empty())
        return answer({}, response.sw);
    const size_t length = response.data.size();
    // T=0 moves Le bytes or none: there even "all there is" must be all of 256.
    if (m_isT0 && command.hasLe && command.data.empty() && command.le > length)
        return answer({}, static_cast<unsigned short>(sw::exactLength | lengthByte(length)));
    m_waiting = std::move(response.data);
    m_waitingStatus = response.sw;
    if (!command.hasLe || (m_isT0 && !command.data.empty()))
        return answer({}, static_cast<unsigned short>(sw::moreData | lengthByte(length)));
    return handOut(command.le);
}

Bytes IsoCard::handOut(size_t wanted)
{
    const auto count = static_cast<std::ptrdiff_t>(std::min(wanted, m_waiting.size()));
    Bytes part(m_waiting.begin(), m_waiting.begin() + count);
    m_waiting.erase(m_waiting.begin(), m_waiting.begin() + count);
    if (m_waiting.empty())
        return answer(std::move(part), m_waitingStatus);
    return answer(std::move(part), static_cast<unsigned short>(sw::moreData | lengthByte(m_waiting.size())));
}

} // namespace vcard
