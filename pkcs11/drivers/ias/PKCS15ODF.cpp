#include "pkcs11/drivers/ias/PKCS15ODF.h"

#include "pkcs11/PKCS11Exception.h"
#include "pkcs11/token/Framing.h"

namespace PKCS11 {

namespace {

constexpr int kFirstTag = constructedTag(0);

} // namespace

void PKCS15ODF::Import(const Blob& content)
{
    m_paths = {};
    for (const Blob& encoded : splitElements(content)) {
        const int entry = encoded.front() - kFirstTag;
        if (entry < 0 || entry >= Count || path(entry).isPresent)
            continue;
        try {
            BERCoder element;
            element.import(encoded, 0);
            path(entry).read(element.getSize() > 0 ? element.component(0) : BERCoder(kSequence));
        } catch (const PKCS11Exception&) {
            // The next one with the tag may decode.
            continue;
        }
    }
}

Blob PKCS15ODF::Export() const
{
    Blob content;
    for (int entry = 0; entry < Count; ++entry) {
        if (!path(entry).isEmpty())
            content.append(MakeBERCoded(kFirstTag + entry, path(entry).Export()));
    }
    return content;
}

} // namespace PKCS11
