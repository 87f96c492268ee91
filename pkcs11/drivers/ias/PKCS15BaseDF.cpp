#include "pkcs11/drivers/ias/PKCS15BaseDF.h"

#include <algorithm>

namespace PKCS11 {

void PKCS15BaseDF::Import(const Blob& content)
{
    for (const Blob& encoded : splitElements(content)) {
        try {
            InsertEntry(encoded);
        } catch (const char*) {
            // A bad record costs only itself.
            continue;
        }
    }
}

Blob PKCS15BaseDF::Export() const
{
    Blob content;
    for (const auto& object : m_records)
        content.append(object->Export());
    return content;
}

void PKCS15BaseDF::DeleteEntry(const Record* object)
{
    const auto found = std::find_if(m_records.begin(), m_records.end(),
                                    [object](const auto& entry) { return entry.get() == object; });
    if (found != m_records.end())
        m_records.erase(found);
}

} // namespace PKCS11
