#include "pkcs11/core/Template.h"

#include "pkcs11/core/Arguments.h"

#include <algorithm>
#include <cstring>

namespace PKCS11 {

namespace {

bool isUnavailable(const CK_ATTRIBUTE& attribute)
{
    return attribute.pValue == nullptr && attribute.ulValueLen == CK_UNAVAILABLE_INFORMATION;
}

} // namespace

const CK_ATTRIBUTE* findAttribute(CK_ATTRIBUTE_TYPE type, const CK_ATTRIBUTE* attributes, CK_ULONG count)
{
    if (attributes == nullptr)
        return nullptr;
    const CK_ATTRIBUTE* end = attributes + count;
    const auto* found =
        std::find_if(attributes, end, [type](const CK_ATTRIBUTE& entry) { return entry.type == type; });
    return found != end ? found : nullptr;
}

bool findAttributeValue(CK_ATTRIBUTE_TYPE type, const CK_ATTRIBUTE* attributes, CK_ULONG count, Blob& out)
{
    out.clear();
    const CK_ATTRIBUTE* found = findAttribute(type, attributes, count);
    if (found == nullptr)
        return false;
    out = valueOf(*found);
    return true;
}

bool findAttributeValue(CK_ATTRIBUTE_TYPE type, const CK_ATTRIBUTE* attributes, CK_ULONG count, void** pValue,
                        CK_ULONG* pLen)
{
    const CK_ATTRIBUTE* found = findAttribute(type, attributes, count);
    if (found == nullptr)
        return false;
    if (pValue != nullptr)
        *pValue = found->pValue;
    if (pLen != nullptr)
        *pLen = found->ulValueLen;
    return true;
}

bool findAttributeValue(CK_ATTRIBUTE_TYPE type, const CK_ATTRIBUTE* attributes, CK_ULONG count, int* index)
{
    const CK_ATTRIBUTE* found = findAttribute(type, attributes, count);
    if (found == nullptr)
        return false;
    *index = static_cast<int>(found - attributes);
    return true;
}

bool findObjectClass(const CK_ATTRIBUTE* attributes, CK_ULONG count, CK_OBJECT_CLASS& objectClass)
{
    const CK_ATTRIBUTE* found = findAttribute(CKA_CLASS, attributes, count);
    if (found == nullptr || found->pValue == nullptr || found->ulValueLen < sizeof objectClass ||
        found->ulValueLen == CK_UNAVAILABLE_INFORMATION)
        return false;
    std::memcpy(&objectClass, found->pValue, sizeof objectClass);
    return true;
}

Blob valueOf(const CK_ATTRIBUTE& attribute)
{
    return isUnavailable(attribute) ? Blob() : Blob::fromMemory(attribute.pValue, attribute.ulValueLen);
}

void checkTemplate(const CK_ATTRIBUTE* attributes, CK_ULONG count)
{
    requireBuffer(attributes, count);
    for (CK_ULONG i = 0; i < count; ++i) {
        if (!isUnavailable(attributes[i]))
            requireBuffer(attributes[i].pValue, attributes[i].ulValueLen);
    }
}

} // namespace PKCS11
