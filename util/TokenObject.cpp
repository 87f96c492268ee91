#include "util/TokenObject.h"

#include "util/VantorException.h"

#include <algorithm>

namespace {

template <class Entries>
auto findEntry(Entries& entries, CK_ATTRIBUTE_TYPE type)
{
    return std::find_if(entries.begin(), entries.end(),
                        [type](const auto& entry) { return entry.first == type; });
}

} // namespace

TokenObject::TokenObject(CK_OBJECT_CLASS objectClass, CK_CERTIFICATE_TYPE certificateType,
                         const std::vector<CK_ATTRIBUTE>& attributes)
{
    set(CKA_CLASS, &objectClass, sizeof objectClass);
    set(CKA_CERTIFICATE_TYPE, &certificateType, sizeof certificateType);
    for (const CK_ATTRIBUTE& attribute : attributes)
        set(attribute.type, attribute.pValue, attribute.ulValueLen);
}

void TokenObject::set(CK_ATTRIBUTE_TYPE type, const void* value, CK_ULONG length)
{
    if (value == nullptr && length != 0)
        throw VantorException("TokenObject::set - attribute without a value", CKR_GENERAL_ERROR);
    const auto* bytes = static_cast<const unsigned char*>(value);
    std::vector<unsigned char> copy(bytes, bytes + length);
    const auto entry = findEntry(m_attributes, type);
    if (entry == m_attributes.end())
        m_attributes.emplace_back(type, std::move(copy));
    else
        entry->second = std::move(copy);
}

bool TokenObject::has(CK_ATTRIBUTE_TYPE type) const
{
    return findEntry(m_attributes, type) != m_attributes.end();
}

CK_ATTRIBUTE TokenObject::get(CK_ATTRIBUTE_TYPE type) const
{
    const auto entry = findEntry(m_attributes, type);
    if (entry == m_attributes.end())
        throw VantorException("TokenObject::get - attribute not found", CKR_GENERAL_ERROR);
    // CK_ATTRIBUTE knows no const; whoever gets it only reads.
    return {type, const_cast<unsigned char*>(entry->second.data()),
            static_cast<CK_ULONG>(entry->second.size())};
}
