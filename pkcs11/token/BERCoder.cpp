#include "pkcs11/token/BERCoder.h"

#include "pkcs11/PKCS11Exception.h"

#include <algorithm>
#include <cstdint>

namespace PKCS11 {

namespace {

constexpr unsigned char kLongTag = 0x1F;
constexpr unsigned char kMoreFollows = 0x80;
constexpr unsigned char kLongLength = 0x80;
constexpr int kMaxLengthBytes = 4;

/// A length field: its value, or the indefinite form, and the position behind it.
struct Length {
    std::uint32_t value = 0;
    bool definite = true;
    int end = 0;
};

Length readLength(const Blob& in, int pos)
{
    const unsigned char first = in.at(pos++);
    if (first < kLongLength)
        return {first, true, pos};
    if (first == kLongLength)
        return {0, false, pos};
    const int count = first & 0x7F;
    if (count > kMaxLengthBytes)
        throw PKCS11Exception(CKR_DATA_INVALID);
    std::uint32_t value = 0;
    for (int i = 0; i < count; ++i)
        value = value << 8 | in.at(pos++);
    return {value, value != 0xFFFFFFFFU, pos};
}

bool endOfContents(const Blob& in, int pos)
{
    return in.at(pos) == 0 && in.at(pos + 1) == 0;
}

/// Length bytes that follow the first one.
int extraLengthBytes(int length)
{
    if (length < kLongLength)
        return 0;
    int count = 0;
    for (auto rest = static_cast<unsigned int>(length); rest != 0; rest >>= 8)
        ++count;
    return count;
}

void checkIndex(int i)
{
    if (i < 0)
        throw PKCS11Exception(CKR_BUFFER_TOO_SMALL);
}

void require(bool condition)
{
    if (!condition)
        throw PKCS11Exception(CKR_DATA_INVALID);
}

} // namespace

BERCoder::BERCoder(const MultiTag& tag, const Blob& value) : m_tag(tag)
{
    setValue(value);
}

void BERCoder::setTag(const MultiTag& tag)
{
    m_tag = tag;
    if (m_tag.IsConstructed())
        m_value.clear();
    else
        m_components.clear();
}

const Blob& BERCoder::getValue() const
{
    require(!m_tag.IsConstructed());
    return m_value;
}

void BERCoder::setValue(const Blob& value)
{
    if (!m_tag.IsConstructed())
        m_value = value;
}

BERCoder& BERCoder::operator[](int i)
{
    require(m_tag.IsConstructed());
    checkIndex(i);
    if (i >= getSize())
        m_components.resize(static_cast<std::size_t>(i) + 1);
    return m_components[static_cast<std::size_t>(i)];
}

const BERCoder& BERCoder::component(int i) const
{
    require(m_tag.IsConstructed());
    if (i < 0 || i >= getSize())
        throw PKCS11Exception(CKR_BUFFER_TOO_SMALL);
    return m_components[static_cast<std::size_t>(i)];
}

void BERCoder::insertComponent(int i)
{
    require(m_tag.IsConstructed());
    checkIndex(i);
    if (i < getSize())
        m_components.emplace(m_components.begin() + i);
    else
        m_components.resize(static_cast<std::size_t>(i) + 1);
}

void BERCoder::append(const BERCoder& node)
{
    require(m_tag.IsConstructed());
    m_components.push_back(node);
}

void BERCoder::eraseComponent(int i)
{
    require(m_tag.IsConstructed());
    if (i >= 0 && i < getSize())
        m_components.erase(m_components.begin() + i);
}

int BERCoder::import(const Blob& in, int pos)
{
    require(!in.empty());
    return importNode(in, pos, 0);
}

int BERCoder::importNode(const Blob& in, int pos, int depth)
{
    setTag(GetMultiTagFromBlob(in, pos));
    const Length length = readLength(in, pos);
    m_sizeDefinable = length.definite;
    pos = length.end;
    return m_tag.IsConstructed() ? importComponents(in, pos, length.definite, length.value, depth)
                                 : importValue(in, pos, length.definite, length.value);
}

int BERCoder::importComponents(const Blob& in, int pos, bool definite, std::uint32_t length, int depth)
{
    m_components.clear();
    require(depth < kMaxNesting);
    const std::int64_t end = std::int64_t{pos} + length;
    while (definite ? pos < end : !endOfContents(in, pos)) {
        m_components.emplace_back();
        try {
            pos = m_components.back().importNode(in, pos, depth + 1);
        } catch (const PKCS11Exception&) {
            // What was decoded before the break stays.
            if (m_components.back().getSize() == 0)
                m_components.pop_back();
            throw;
        }
    }
    return definite ? pos : pos + 2;
}

int BERCoder::importValue(const Blob& in, int pos, bool definite, std::uint32_t length)
{
    m_value.clear();
    if (definite) {
        require(length <= static_cast<std::uint32_t>(in.size() - pos));
        m_value = in.slice(pos, static_cast<int>(length));
        return pos + static_cast<int>(length);
    }
    int end = pos;
    while (!endOfContents(in, end))
        ++end;
    m_value = in.slice(pos, end - pos);
    return end + 2;
}

int BERCoder::getInnerSize() const
{
    if (!m_tag.IsConstructed())
        return m_value.size();
    int size = 0;
    for (const BERCoder& node : m_components)
        size += node.getEncodeSize();
    return size;
}

int BERCoder::getEncodeSize() const
{
    const int inner = getInnerSize();
    return m_tag.size() + 1 + extraLengthBytes(inner) + inner;
}

int BERCoder::exportToMem(unsigned char* out) const
{
    unsigned char* next = std::copy(m_tag.begin(), m_tag.end(), out);
    const int inner = getInnerSize();
    const int extra = extraLengthBytes(inner);
    *next++ = static_cast<unsigned char>(extra == 0 ? inner : kLongLength | extra);
    for (int shift = 8 * (extra - 1); shift >= 0; shift -= 8)
        *next++ = static_cast<unsigned char>(static_cast<unsigned int>(inner) >> shift);
    if (m_tag.IsConstructed()) {
        for (const BERCoder& node : m_components)
            next += node.exportToMem(next);
    } else {
        next = std::copy(m_value.begin(), m_value.end(), next);
    }
    return static_cast<int>(next - out);
}

void BERCoder::Export(Blob& out) const
{
    Blob encoded(getEncodeSize(), 0);
    exportToMem(encoded.data());
    out.swap(encoded);
}

MultiTag BERCoder::GetMultiTagFromBlob(const Blob& in, int& pos)
{
    const int first = pos;
    if ((in.at(pos++) & kLongTag) == kLongTag) {
        do
            require(pos < in.size());
        while ((in[pos++] & kMoreFollows) != 0);
    }
    return MultiTag(in.slice(first, pos - first));
}

} // namespace PKCS11
