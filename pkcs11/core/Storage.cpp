#include "pkcs11/core/Storage.h"

namespace PKCS11 {

namespace {

constexpr AttributeRow kRows[] = {
    attributeRow<&Storage::getLabel, &Storage::setLabel>(CKA_LABEL),
    attributeRow<&Storage::getOnToken, &Storage::setOnToken>(CKA_TOKEN),
    attributeRow<&Storage::getPrivate, &Storage::setPrivate>(CKA_PRIVATE),
    attributeRow<&Storage::getModifiable, &Storage::setModifiable>(CKA_MODIFIABLE),
};

} // namespace

const AttributeTable Storage::kAttributes = attributeTableOf(kRows, &Object::kAttributes);

Storage::Storage()
{
    setFlag(CKA_MODIFIABLE, CK_TRUE);
}

bool isPrivate(Object& object)
{
    auto* storage = dynamic_cast<Storage*>(&object);
    return storage != nullptr && storage->getPrivate() != CK_FALSE;
}

} // namespace PKCS11
