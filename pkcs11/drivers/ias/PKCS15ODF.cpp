#include "pkcs11/drivers/ias/PKCS15ODF.h"

#include "pkcs11/PKCS11Exception.h"
#include "pkcs11/token/Framing.h"

#include <algorithm>

namespace PKCS11 {

namespace {

constexpr int kFirstTag = 0xA0;

/// The first element with the tag that decodes.
std::vector<Blob>::const_iterator find(const std::vector<Blob>& elements, int tag, BERCoder& node)
{
    return std::find_if(elements.begin(), elements.end(), [&](const Blob& element) {
        if (element.front() != tag)
            return false;
        try {
            node.import(element, 0);
        } catch (const PKCS11Exception&) {
            return false;
        }
        return true;
    });
}

} // namespace

void PKCS15ODF::Import(const Blob& content)
{
    m_elements = splitElements(content);
    for (int entry = 0; entry < Count; ++entry) {
        path(entry) = PKCS15Path();
        BERCoder node;
        if (find(m_elements, kFirstTag + entry, node) == m_elements.end())
            continue;
        const BERCoder* inner = componentOf(node, 0);
        path(entry).take(inner != nullptr ? *inner : BERCoder(0x30));
    }
}

Blob PKCS15ODF::Export() const
{
    std::vector<Blob> elements = m_elements;
    for (int entry = 0; entry < Count; ++entry) {
        if (!path(entry).isPresent())
            continue;
        BERCoder node;
        const auto place = find(m_elements, kFirstTag + entry, node);
        if (place == m_elements.end()) {
            elements.push_back(MakeBERCoded(kFirstTag + entry, path(entry).Export()));
            continue;
        }
        Blob before;
        node.Export(before);
        putComponent(node, 0, path(entry).node());
        Blob after;
        node.Export(after);
        if (after != before)
            elements[static_cast<std::size_t>(place - m_elements.begin())] = after;
    }
    Blob content;
    for (const Blob& element : elements)
        content.append(element);
    return content;
}

} // namespace PKCS11
