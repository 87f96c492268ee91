#include "pkcs11/core/PrivateKey.h"

namespace PKCS11 {

namespace {

constexpr AttributeRow kRows[] = {
    attributeRow<&PrivateKey::getSubject, &PrivateKey::setSubject>(CKA_SUBJECT),
    attributeRow<&PrivateKey::getSensitive, &PrivateKey::setSensitive>(CKA_SENSITIVE),
    attributeRow<&PrivateKey::getDecrypt, &PrivateKey::setDecrypt>(CKA_DECRYPT),
    attributeRow<&PrivateKey::getSign, &PrivateKey::setSign>(CKA_SIGN),
    attributeRow<&PrivateKey::getSignRecovery, &PrivateKey::setSignRecovery>(CKA_SIGN_RECOVER),
    attributeRow<&PrivateKey::getUnwrap, &PrivateKey::setUnwrap>(CKA_UNWRAP),
    attributeRow<&PrivateKey::getExtractable, &PrivateKey::setExtractable>(CKA_EXTRACTABLE),
    attributeRow<&PrivateKey::getAlwaysSensitive, &PrivateKey::setAlwaysSensitive>(CKA_ALWAYS_SENSITIVE),
    attributeRow<&PrivateKey::getNeverExtractable, &PrivateKey::setNeverExtractable>(CKA_NEVER_EXTRACTABLE),
};

} // namespace

const AttributeTable PrivateKey::kAttributes = attributeTableOf(kRows, &Key::kAttributes);

PrivateKey::PrivateKey()
{
    setFlag(CKA_PRIVATE, CK_TRUE);
}

} // namespace PKCS11
