#include "pkcs11/drivers/ias/PKCS15Record.h"

#include "pkcs11/PKCS11Exception.h"

#include <algorithm>
#include <cstdint>
#include <limits>

namespace PKCS11 {

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
            node = BERCoder(kSequence);
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
    if (!hasTag(node, kSequence))
        throw text;
}

std::vector<Blob> splitElements(const Blob& content)
{
    std::vector<Blob> elements;
    ByteReader reader(content);
    try {
        while (reader.left() > 0) {
            if (reader.peek() == 0x00 || reader.peek() == 0xFF) {
                reader.skip(1);
            } else if (auto element = reader.element()) {
                elements.push_back(std::move(element->encoded));
            } else {
                // Only decoding finds the end of an indefinite length.
                const int end = BERCoder().import(content, reader.position());
                elements.push_back(reader.take(end - reader.position()));
            }
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
