#include "pkcs11/token/PKCS11Attrs.h"

#include "pkcs11/PKCS11Exception.h"
#include "pkcs11/token/BERTags.h"
#include "pkcs11/token/ByteOrder.h"

#include <algorithm>
#include <iterator>
#include <map>

namespace PKCS11 {

namespace {

/// What a card keeps in files of their own, or must not keep at all. The cards in use were written with this
/// list, gaps included.
constexpr CK_ATTRIBUTE_TYPE kNeverStored[] = {
    CKA_TOKEN,    CKA_VALUE,   CKA_ISSUER,           CKA_SERIAL_NUMBER, CKA_AC_ISSUER, CKA_OWNER,
    CKA_SUBJECT,  CKA_MODULUS, CKA_PRIVATE_EXPONENT, CKA_PRIME_1,       CKA_PRIME_2,   CKA_PRIME,
    CKA_SUBPRIME, CKA_BASE,    CKA_EC_PARAMS,        CKA_EC_POINT,
};

bool isStored(CK_ATTRIBUTE_TYPE type)
{
    return std::find(std::begin(kNeverStored), std::end(kNeverStored), type) == std::end(kNeverStored);
}

/// Element i of an attribute, or null: components of a set from a card may lack either.
const Blob* element(const BERCoder& attribute, int i)
{
    if (i >= attribute.getSize() || attribute.component(i).getTag().IsConstructed())
        return nullptr;
    return &attribute.component(i).getValue();
}

bool hasType(const BERCoder& attribute, const Blob& type)
{
    const Blob* own = element(attribute, 0);
    return own != nullptr && *own == type;
}

bool isStored(const BERCoder& attribute)
{
    const Blob* type = element(attribute, 0);
    return type == nullptr || type->size() != 4 || isStored(blob2long(*type));
}

} // namespace

PKCS11Attrs::PKCS11Attrs() : BERCoder(kSet) {}

PKCS11Attrs::PKCS11Attrs(const Blob& encoded)
{
    import(encoded, 0);
}

int PKCS11Attrs::find(const Blob& type) const
{
    int i = 0;
    while (i < getSize() && !hasType(component(i), type))
        ++i;
    return i;
}

void PKCS11Attrs::SetParam(const Blob& type, const Blob& value)
{
    put(find(type), type, value);
}

void PKCS11Attrs::put(int i, const Blob& type, const Blob& value)
{
    const BERCoder stored(kOctetString, value);
    if (i < getSize()) {
        (*this)[i][1] = stored;
        return;
    }
    BERCoder attribute(kSequence);
    attribute.append(BERCoder(kObjectIdentifier, type));
    attribute.append(stored);
    append(attribute);
}

void PKCS11Attrs::SetParam(CK_ATTRIBUTE_TYPE type, const Blob& value)
{
    SetParam(long2blob(type), value);
}

void PKCS11Attrs::SetParam(CK_ATTRIBUTE_TYPE type, unsigned char value)
{
    SetParam(type, Blob(1, value == 1 ? 1 : 0));
}

void PKCS11Attrs::SetParam(const CK_ATTRIBUTE* attributes, CK_ULONG count)
{
    if (attributes == nullptr && count != 0)
        throw PKCS11Exception(CKR_ARGUMENTS_BAD);
    for (CK_ULONG i = 0; i < count; ++i) {
        const CK_ATTRIBUTE& attribute = attributes[i];
        if (attribute.ulValueLen != 0 && isStored(attribute.type))
            SetParam(attribute.type, Blob::fromMemory(attribute.pValue, attribute.ulValueLen));
    }
}

void PKCS11Attrs::GetParam(const Blob& type, Blob& value) const
{
    const int i = find(type);
    const Blob* stored = i < getSize() ? element(component(i), 1) : nullptr;
    if (stored == nullptr)
        value.clear();
    else
        value = *stored;
}

void PKCS11Attrs::GetParam(CK_ATTRIBUTE_TYPE type, Blob& value) const
{
    GetParam(long2blob(type), value);
}

bool PKCS11Attrs::GetParam(CK_ATTRIBUTE_TYPE type) const
{
    Blob value;
    GetParam(type, value);
    return !value.empty() && value.front() == 1;
}

void PKCS11Attrs::SetAttrs(const Blob& encoded)
{
    const PKCS11Attrs other(encoded);
    // The first component of each type: a set from a card may be too large to search it for each.
    std::map<Blob, int> places;
    for (int i = 0; i < getSize(); ++i) {
        if (const Blob* type = element(component(i), 0))
            places.emplace(*type, i);
    }
    for (int i = 0; i < other.getSize(); ++i) {
        const Blob* type = element(other.component(i), 0);
        const Blob* value = element(other.component(i), 1);
        if (type != nullptr && value != nullptr)
            put(places.emplace(*type, getSize()).first->second, *type, *value);
    }
}

Blob PKCS11Attrs::GetAttrs() const
{
    BERCoder stored(kSet);
    for (int i = 0; i < getSize(); ++i) {
        if (isStored(component(i)))
            stored.append(component(i));
    }
    Blob encoded;
    stored.Export(encoded);
    return encoded;
}

} // namespace PKCS11
