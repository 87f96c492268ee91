#include "pkcs11/core/PublicKey.h"

namespace PKCS11 {

namespace {

constexpr AttributeRow kRows[] = {
    attributeRow<&PublicKey::getSubject, &PublicKey::setSubject>(CKA_SUBJECT),
    attributeRow<&PublicKey::getTrusted, &PublicKey::setTrusted>(CKA_TRUSTED),
    attributeRow<&PublicKey::getEncrypt, &PublicKey::setEncrypt>(CKA_ENCRYPT),
    attributeRow<&PublicKey::getVerify, &PublicKey::setVerify>(CKA_VERIFY),
    attributeRow<&PublicKey::getVerifyRecovery, &PublicKey::setVerifyRecovery>(CKA_VERIFY_RECOVER),
    attributeRow<&PublicKey::getWrap, &PublicKey::setWrap>(CKA_WRAP),
};

} // namespace

const AttributeTable PublicKey::kAttributes = attributeTableOf(kRows, &Key::kAttributes);

} // namespace PKCS11
