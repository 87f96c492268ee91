#include "pkcs11/token/ByteReader.h"

#include "pkcs11/PKCS11Exception.h"
#include "pkcs11/token/BERTags.h"

namespace PKCS11 {

Blob ByteReader::take(int count)
{
    const int first = m_position;
    skip(count);
    return m_bytes.slice(first, count);
}

void ByteReader::skip(int count)
{
    if (!has(count))
        throw PKCS11Exception(CKR_BUFFER_TOO_SMALL);
    m_position += count;
}

MultiTag ByteReader::tag()
{
    const int first = m_position;
    bool more = (byte() & kLongTag) == kLongTag;
    while (more) {
        if (left() <= 0)
            throw PKCS11Exception(CKR_DATA_INVALID);
        more = (byte() & kMoreFollows) != 0;
    }
    return MultiTag(m_bytes.slice(first, m_position - first));
}

std::optional<std::uint32_t> ByteReader::length()
{
    const unsigned char first = byte();
    if (first < kLongLength)
        return first;
    const int count = first & ~kLongLength;
    if (count > kMaxLengthBytes)
        throw PKCS11Exception(CKR_DATA_INVALID);
    std::uint32_t value = 0;
    for (int i = 0; i < count; ++i)
        value = value << 8 | byte();
    return count == 0 || value == 0xFFFFFFFFU ? std::nullopt : std::make_optional(value);
}

std::optional<TlvElement> ByteReader::element()
{
    const int first = m_position;
    try {
        TlvElement element{tag(), {}, {}};
        const auto size = length();
        if (size && *size <= static_cast<std::uint32_t>(left())) {
            element.value = take(static_cast<int>(*size));
            element.encoded = m_bytes.slice(first, m_position - first);
            return element;
        }
    } catch (const PKCS11Exception&) {
        m_position = first;
        return {};
    }
    m_position = first;
    return {};
}

} // namespace PKCS11
