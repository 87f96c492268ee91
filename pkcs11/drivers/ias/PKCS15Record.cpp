#include "pkcs11/drivers/ias/PKCS15Record.h"

#include "pkcs11/PKCS11Exception.h"

#include <algorithm>
#include <cstdint>
#include <limits>

namespace PKCS11 {

namespace {

constexpr unsigned char kIndefiniteLength = 0x80;
constexpr int kMaxLengthBytes = 4;

/// The position behind the element that starts at pos.
int endOfElement(const Blob& content, int pos)
{
    int end = pos;
    BERCoder::GetMultiTagFromBlob(content, end);
    // Only decoding finds the end of an indefinite length.
    if (content.at(end) == kIndefiniteLength)
        return BERCoder().import(content, pos);
    ByteReader reader(content);
    reader.skip(end);
    const int length = readBERLength(reader);
    reader.skip(length);
    return reader.position();
}

} // namespace

void PKCS15Record::Import(const Blob& encoded)
{
    BERCoder node;
    int end = encoded.size(); // NOLINT(clang-analyzer-deadcode.DeadStores): read when the import throws
    try {
        end = node.import(encoded, 0);
    } catch (const PKCS11Exception&) {
        if (m_undecodable != nullptr)
            throw m_undecodable;
        if (!node.getTag().IsConstructed())
            node = BERCoder(kPKCS15Sequence);
    }
    read(node);
    m_recordSize = end;
}

Blob PKCS15Record::Export() const
{
    Blob encoded;
    node().Export(encoded);
    return encoded;
}

bool hasTag(const BERCoder& node, int firstByte)
{
    return node.getTag().front() == firstByte;
}

int findComponent(const BERCoder& node, int firstByte)
{
    for (int i = 0; i < node.getSize(); ++i) {
        if (hasTag(node.component(i), firstByte))
            return i;
    }
    return -1;
}

const BERCoder* componentOf(const BERCoder& node, int i)
{
    return i < node.getSize() ? &node.component(i) : nullptr;
}

const BERCoder* valueOf(const BERCoder& component, unsigned char tag, unsigned char inner)
{
    if (!hasTag(component, tag))
        return nullptr;
    if (inner == 0)
        return &component;
    const BERCoder* value = componentOf(component, 0);
    return value != nullptr && hasTag(*value, inner) ? value : nullptr;
}

BERCoder elementOf(int tag, std::initializer_list<BERCoder> components)
{
    BERCoder element(tag);
    for (const BERCoder& component : components)
        element.append(component);
    return element;
}

BERCoder elementOf(unsigned char tag, unsigned char inner, const Blob& value)
{
    return inner == 0 ? BERCoder(tag, value) : elementOf(tag, {{inner, value}});
}

void requireSequence(const BERCoder& node, const char* text)
{
    if (!hasTag(node, kPKCS15Sequence))
        throw text;
}

int readBERLength(ByteReader& reader)
{
    const int first = reader.byte();
    if (first <= kIndefiniteLength)
        return first & 0x7F;
    const int count = first & 0x7F;
    std::int64_t length = count > kMaxLengthBytes ? std::numeric_limits<std::int64_t>::max() : 0;
    for (int i = 0; i < count && count <= kMaxLengthBytes; ++i)
        length = length << 8 | reader.byte();
    if (length > reader.left())
        throw PKCS11Exception(CKR_DATA_INVALID);
    return static_cast<int>(length);
}

std::vector<Blob> splitElements(const Blob& content)
{
    std::vector<Blob> elements;
    int pos = 0;
    try {
        while (pos < content.size()) {
            if (content[pos] == 0x00 || content[pos] == 0xFF) {
                ++pos;
                continue;
            }
            const int end = endOfElement(content, pos);
            elements.push_back(content.slice(pos, end - pos));
            pos = end;
        }
    } catch (const PKCS11Exception&) {
        // The file breaks off here.
        return elements;
    }
    return elements;
}

int integerOf(const Blob& value)
{
    std::int64_t number = 0;
    for (const unsigned char byte : value)
        number = std::min<std::int64_t>(number << 8 | byte, std::numeric_limits<int>::max());
    return static_cast<int>(number);
}

} // namespace PKCS11
