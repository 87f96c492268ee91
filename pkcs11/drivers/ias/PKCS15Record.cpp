#include "pkcs11/drivers/ias/PKCS15Record.h"

#include "pkcs11/PKCS11Exception.h"

#include <algorithm>
#include <cstdint>
#include <limits>

namespace PKCS11 {

namespace {

constexpr unsigned char kSequence = 0x30;
constexpr unsigned char kIndefiniteLength = 0x80;
constexpr int kMaxLengthBytes = 4;

Blob encodingOf(const BERCoder& node)
{
    Blob encoded;
    node.Export(encoded);
    return encoded;
}

/// The node that holds the value of an element, or null when the component is not that element.
const BERCoder* valueNode(const BERCoder& component, const PKCS15Element& element)
{
    if (!hasTag(component, element.tag))
        return nullptr;
    if (element.inner == 0)
        return &component;
    const BERCoder* inner = componentOf(component, 0);
    return inner != nullptr && hasTag(*inner, element.inner) ? inner : nullptr;
}

BERCoder makeElement(const PKCS15Element& element, const Blob& value)
{
    if (element.inner == 0)
        return {element.tag, value};
    BERCoder outer(element.tag);
    outer.append({element.inner, value});
    return outer;
}

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

PKCS15Record::PKCS15Record(const char* undecodable)
    : m_undecodable(undecodable), m_node(kSequence), m_encoded(encodingOf(m_node))
{
}

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
    take(node);
    m_encoded = encoded.slice(0, end);
}

Blob PKCS15Record::Export() const
{
    const Blob current = encodingOf(node());
    return current == encodingOf(m_node) ? m_encoded : current;
}

void PKCS15Record::take(const BERCoder& node)
{
    m_node = node;
    m_encoded = encodingOf(node);
    read(m_node);
}

BERCoder PKCS15Record::node() const
{
    BERCoder current = m_node;
    write(current);
    return current;
}

PKCS15Sequence::PKCS15Sequence(const PKCS15Layout& layout, const char* undecodable)
    : PKCS15Record(undecodable), m_layout(&layout), m_fields(static_cast<std::size_t>(layout.count))
{
}

bool PKCS15Sequence::isEmpty() const
{
    return std::all_of(m_fields.begin(), m_fields.end(), [](const Blob& value) { return value.empty(); });
}

std::vector<int> PKCS15Sequence::match(const BERCoder& node) const
{
    std::vector<int> matches;
    std::vector<bool> filled(m_fields.size());
    for (int i = 0; i < node.getSize(); ++i) {
        const BERCoder& component = node.component(i);
        bool known = false;
        int match = -1;
        for (int row = 0; row < m_layout->count && match < 0; ++row) {
            const PKCS15Element& element = m_layout->elements[row];
            known = known || hasTag(component, element.tag);
            const BERCoder* value = valueNode(component, element);
            if (value != nullptr && !value->getValue().empty() && !filled[static_cast<std::size_t>(row)])
                match = row;
        }
        if (match >= 0)
            filled[static_cast<std::size_t>(match)] = true;
        else if (!known && m_layout->others == PKCS15Layout::Others::Refuse)
            throw m_layout->error;
        else if (!known && m_layout->others == PKCS15Layout::Others::End)
            break;
        matches.push_back(match);
    }
    return matches;
}

void PKCS15Sequence::read(const BERCoder& node)
{
    std::fill(m_fields.begin(), m_fields.end(), Blob());
    if (!hasTag(node, kSequence)) {
        if (m_layout->wrongTag != nullptr)
            throw m_layout->wrongTag;
        return;
    }
    const std::vector<int> matches = match(node);
    for (int i = 0; i < static_cast<int>(matches.size()); ++i) {
        const int row = matches[static_cast<std::size_t>(i)];
        if (row >= 0)
            setField(row, valueNode(node.component(i), m_layout->elements[row])->getValue());
    }
}

void PKCS15Sequence::write(BERCoder& node) const
{
    if (!hasTag(node, kSequence)) {
        // Another form than the one this record reads stays until there is something to say.
        if (isEmpty())
            return;
        node = BERCoder(kSequence);
    }
    std::vector<int> matches = match(node);
    for (int i = static_cast<int>(matches.size()) - 1; i >= 0; --i) {
        const int row = matches[static_cast<std::size_t>(i)];
        if (row < 0)
            continue;
        if (field(row).empty()) {
            node.eraseComponent(i);
            matches.erase(matches.begin() + i);
        } else if (field(row) != valueNode(node.component(i), m_layout->elements[row])->getValue()) {
            node[i] = makeElement(m_layout->elements[row], field(row));
        }
    }
    for (int row = 0; row < m_layout->count; ++row) {
        if (field(row).empty() || std::find(matches.begin(), matches.end(), row) != matches.end())
            continue;
        const auto next =
            std::find_if(matches.begin(), matches.end(), [row](int other) { return other > row; });
        const int place = static_cast<int>(next - matches.begin());
        node.insertComponent(place);
        node[place] = makeElement(m_layout->elements[row], field(row));
        matches.insert(next, row);
    }
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

void putComponent(BERCoder& node, int i, const BERCoder& element)
{
    if (i >= node.getSize() && element.getInnerSize() == 0)
        return;
    while (node.getSize() <= i)
        node.append(BERCoder(kSequence));
    node[i] = element;
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
