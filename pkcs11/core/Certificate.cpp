#include "pkcs11/core/Certificate.h"

namespace PKCS11 {

namespace {

constexpr AttributeRow kRows[] = {
    readOnlyRow<&Certificate::getCertificateType>(CKA_CERTIFICATE_TYPE),
    attributeRow<&Certificate::getTrusted, &Certificate::setTrusted>(CKA_TRUSTED),
};

} // namespace

const AttributeTable Certificate::kAttributes = attributeTableOf(kRows, &Storage::kAttributes);

} // namespace PKCS11
