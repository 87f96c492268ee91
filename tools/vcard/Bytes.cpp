#include "tools/vcard/Bytes.h"

#include <stdexcept>

namespace vcard {

namespace {

unsigned digit(char character)
{
    static const std::string digits = "0123456789abcdef";
    const auto place =
        digits.find(static_cast<char>(character >= 'A' && character <= 'F' ? character + 32 : character));
    if (place == std::string::npos)
        throw std::invalid_argument("not a hexadecimal digit");
    return static_cast<unsigned>(place);
}

void appendTag(Bytes& out, unsigned tag)
{
    for (int shift = 16; shift > 0; shift -= 8) {
        if (tag >> shift != 0)
            out.push_back(static_cast<unsigned char>(tag >> shift));
    }
    out.push_back(static_cast<unsigned char>(tag));
}

void appendLength(Bytes& out, size_t length)
{
    if (length > 0xFF) {
        out.insert(out.end(), {0x82, static_cast<unsigned char>(length >> 8)});
    } else if (length > 0x7F) {
        out.push_back(0x81);
    }
    out.push_back(static_cast<unsigned char>(length));
}

/// Takes bytes from the front; every take says whether there was enough.
class Taker {
public:
    explicit Taker(const Bytes& bytes) : m_bytes(bytes) {}
    bool empty() const { return m_at == m_bytes.size(); }
    bool take(unsigned& byte)
    {
        if (empty())
            return false;
        byte = m_bytes[m_at++];
        return true;
    }
    bool take(size_t length, Bytes& out)
    {
        if (length > m_bytes.size() - m_at)
            return false;
        const auto from = m_bytes.begin() + static_cast<std::ptrdiff_t>(m_at);
        out.assign(from, from + static_cast<std::ptrdiff_t>(length));
        m_at += length;
        return true;
    }

private:
    const Bytes& m_bytes;
    size_t m_at = 0;
};

bool takeTag(Taker& from, unsigned& tag)
{
    if (!from.take(tag))
        return false;
    if ((tag & 0x1F) != 0x1F)
        return true;
    for (int further = 0; further < 2; ++further) {
        unsigned byte = 0;
        if (!from.take(byte))
            return false;
        tag = tag << 8 | byte;
        if ((byte & 0x80) == 0)
            return true;
    }
    return false;
}

bool takeLength(Taker& from, size_t& length)
{
    unsigned first = 0;
    if (!from.take(first))
        return false;
    length = first;
    if (first <= 0x7F)
        return true;
    if (first != 0x81 && first != 0x82)
        return false;
    length = 0;
    for (unsigned count = first & 0x7F; count > 0; --count) {
        unsigned byte = 0;
        if (!from.take(byte))
            return false;
        length = length << 8 | byte;
    }
    return true;
}

} // namespace

Bytes fromHex(const std::string& text)
{
    if (text.size() % 2 != 0)
        throw std::invalid_argument("an odd number of hexadecimal digits");
    Bytes bytes;
    for (size_t at = 0; at < text.size(); at += 2)
        bytes.push_back(static_cast<unsigned char>(digit(text[at]) << 4 | digit(text[at + 1])));
    return bytes;
}

std::string toHex(const Bytes& bytes)
{
    static const std::string digits = "0123456789ABCDEF";
    std::string text;
    for (const unsigned char byte : bytes) {
        text += digits[byte >> 4];
        text += digits[byte & 0x0F];
    }
    return text;
}

Bytes fromText(const std::string& text)
{
    return {text.begin(), text.end()};
}

Bytes join(std::initializer_list<Bytes> parts)
{
    Bytes all;
    for (const Bytes& part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

Bytes twoBytes(unsigned value)
{
    return {static_cast<unsigned char>(value >> 8), static_cast<unsigned char>(value)};
}

Bytes tlv(unsigned tag, const Bytes& value)
{
    if (value.size() > 0xFFFF)
        throw std::length_error("a value of more than 64 KiB");
    Bytes out;
    appendTag(out, tag);
    appendLength(out, value.size());
    out.insert(out.end(), value.begin(), value.end());
    return out;
}

std::optional<std::vector<Tlv>> parseTlvs(const Bytes& bytes)
{
    std::vector<Tlv> elements;
    Taker from(bytes);
    while (!from.empty()) {
        Tlv element;
        size_t length = 0;
        if (!takeTag(from, element.tag) || !takeLength(from, length) || !from.take(length, element.value))
            return std::nullopt;
        elements.push_back(std::move(element));
    }
    return elements;
}

} // namespace vcard
