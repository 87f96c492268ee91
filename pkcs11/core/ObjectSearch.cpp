#include "pkcs11/core/ObjectSearch.h"

#include "pkcs11/core/Object.h"
#include "pkcs11/core/Template.h"

namespace PKCS11 {

void ObjectSearch::start(const CK_ATTRIBUTE* attributes, CK_ULONG count)
{
    finish();
    try {
        checkTemplate(attributes, count);
        for (CK_ULONG i = 0; i < count; ++i)
            m_template.push_back(
                {attributes[i].type, Blob::fromMemory(attributes[i].pValue, attributes[i].ulValueLen)});
    } catch (const PKCS11Exception&) {
        // A search never fails to start; no object has a value that cannot be read or held.
        m_matchesNothing = true;
    }
}

bool ObjectSearch::matches(Object& object) const
{
    if (m_matchesNothing)
        return false;
    try {
        std::vector<CK_ATTRIBUTE> entries;
        entries.reserve(m_template.size());
        for (const Entry& entry : m_template)
            entries.push_back({entry.type, const_cast<unsigned char*>(entry.value.data()),
                               static_cast<CK_ULONG>(entry.value.size())});
        return object.testObject(entries.data(), static_cast<CK_ULONG>(entries.size()), 0);
    } catch (const std::exception&) {
        return false;
    }
}

} // namespace PKCS11
