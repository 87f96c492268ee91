#include "pkcs11/core/Key.h"

#include <cstring>

namespace PKCS11 {

namespace {

constexpr AttributeRow kRows[] = {
    attributeRow<&Key::getKeyType, &Key::setKeyType>(CKA_KEY_TYPE),
    attributeRow<&Key::getID, &Key::setID>(CKA_ID),
    attributeRow<&Key::getLocal, &Key::setLocal>(CKA_LOCAL),
    attributeRow<&Key::getDerive, &Key::setDerive>(CKA_DERIVE),
    attributeRow<&Key::getStartDate, &Key::setStartDate>(CKA_START_DATE),
    attributeRow<&Key::getEndDate, &Key::setEndDate>(CKA_END_DATE),
};

} // namespace

const AttributeTable Key::kAttributes = attributeTableOf(kRows, &Storage::kAttributes);

CK_DATE Key::date(CK_ATTRIBUTE_TYPE type) const
{
    CK_DATE value{};
    const Blob stored = bytes(type);
    if (stored.size() == static_cast<int>(sizeof value))
        std::memcpy(&value, stored.data(), sizeof value);
    return value;
}

void Key::setDate(CK_ATTRIBUTE_TYPE type, const CK_DATE& value)
{
    setBytes(type, Blob::fromMemory(&value, sizeof value));
}

} // namespace PKCS11
