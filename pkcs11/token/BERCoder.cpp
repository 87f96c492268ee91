#include "pkcs11/token/BERCoder.h"

#include "pkcs11/PKCS11Exception.h"
#include "pkcs11/token/BERTags.h"

#include <algorithm>

namespace PKCS11 {

namespace {

bool endOfContents(const ByteReader& reader)
{
    return reader.peek(0) == 0 && reader.peek(1) == 0;
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
    ByteReader reader(in, pos);
    importNode(reader, 0);
    return reader.position();
}

void BERCoder::importNode(ByteReader& reader, int depth)
{
    m_sizeDefinable = true;
    setTag(reader.tag());
    const std::optional<std::uint32_t> length = reader.length();
    m_sizeDefinable = length.has_value();
    if (m_tag.IsConstructed())
        importComponents(reader, length, depth);
    else
        importValue(reader, length);
    if (!length)
        reader.skip(2);
}

void BERCoder::importComponents(ByteReader& reader, std::optional<std::uint32_t> length, int depth)
{
    m_components.clear();
    require(depth < kMaxNesting);
    const std::int64_t end = std::int64_t{reader.position()} + length.value_or(0);
    while (length ? reader.position() < end : !endOfContents(reader)) {
        m_components.emplace_back();
        try {
            m_components.back().importNode(reader, depth + 1);
        } catch (const PKCS11Exception&) {
            // What was decoded before the break stays.
            if (m_components.back().getSize() == 0)
                m_components.pop_back();
            throw;
        }
    }
}

void BERCoder::importValue(ByteReader& reader, std::optional<std::uint32_t> length)
{
    m_value.clear();
    if (length) {
        require(*length <= static_cast<std::uint32_t>(reader.left()));
        m_value = reader.take(static_cast<int>(*length));
        return;
    }
    while (!endOfContents(reader))
        m_value.push_back(reader.byte());
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
    return m_tag.size() + encodedLength(inner).size() + inner;
}

int BERCoder::exportToMem(unsigned char* out) const
{
    unsigned char* next = std::copy(m_tag.begin(), m_tag.end(), out);
    const Blob length = encodedLength(getInnerSize());
    next = std::copy(length.begin(), length.end(), next);
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
    ByteReader reader(in, pos);
    MultiTag tag = reader.tag();
    pos = reader.position();
    return tag;
}

Blob BERCoder::encodedLength(int length)
{
    if (length < kLongLength)
        return {1, static_cast<unsigned char>(length)};
    Blob bytes;
    for (auto rest = static_cast<unsigned int>(length); rest != 0; rest >>= 8)
        bytes.insert(bytes.begin(), static_cast<unsigned char>(rest));
    bytes.insert(bytes.begin(), static_cast<unsigned char>(kLongLength | bytes.size()));
    return bytes;
}

} // namespace PKCS11
