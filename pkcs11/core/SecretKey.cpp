#include "pkcs11/core/SecretKey.h"

namespace PKCS11 {

namespace {

constexpr AttributeRow kRows[] = {
    attributeRow<&SecretKey::getValue, &SecretKey::setValue>(CKA_VALUE),
    attributeRow<&SecretKey::getValueLen, &SecretKey::setValueLen>(CKA_VALUE_LEN),
    attributeRow<&SecretKey::getSensitive, &SecretKey::setSensitive>(CKA_SENSITIVE),
    attributeRow<&SecretKey::getEncrypt, &SecretKey::setEncrypt>(CKA_ENCRYPT),
    attributeRow<&SecretKey::getDecrypt, &SecretKey::setDecrypt>(CKA_DECRYPT),
    attributeRow<&SecretKey::getSign, &SecretKey::setSign>(CKA_SIGN),
    attributeRow<&SecretKey::getVerify, &SecretKey::setVerify>(CKA_VERIFY),
    attributeRow<&SecretKey::getWrap, &SecretKey::setWrap>(CKA_WRAP),
    attributeRow<&SecretKey::getUnwrap, &SecretKey::setUnwrap>(CKA_UNWRAP),
    attributeRow<&SecretKey::getExtractable, &SecretKey::setExtractable>(CKA_EXTRACTABLE),
    attributeRow<&SecretKey::getAlwaysSensitive, &SecretKey::setAlwaysSensitive>(CKA_ALWAYS_SENSITIVE),
    attributeRow<&SecretKey::getNeverExtractable, &SecretKey::setNeverExtractable>(CKA_NEVER_EXTRACTABLE),
};

} // namespace

const AttributeTable SecretKey::kAttributes = attributeTableOf(kRows, &Key::kAttributes);

SecretKey::SecretKey()
{
    setFlag(CKA_PRIVATE, CK_TRUE);
}

} // namespace PKCS11
