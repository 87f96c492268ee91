#include "pkcs11/core/Data.h"

namespace PKCS11 {

namespace {

constexpr AttributeRow kRows[] = {
    attributeRow<&Data::getApplication, &Data::setApplication>(CKA_APPLICATION),
    attributeRow<&Data::getObjectIdentifier, &Data::setObjectIdentifier>(CKA_OBJECT_ID),
    onDemand(attributeRow<&Data::getValue, &Data::setValue>(CKA_VALUE)),
};

} // namespace

const AttributeTable Data::kAttributes = attributeTableOf(kRows, &Storage::kAttributes);

} // namespace PKCS11
