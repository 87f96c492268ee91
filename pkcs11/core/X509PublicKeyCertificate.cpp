#include "pkcs11/core/X509PublicKeyCertificate.h"

namespace PKCS11 {

namespace {

using X509 = X509PublicKeyCertificate;

constexpr AttributeRow kRows[] = {
    attributeRow<&X509::getID, &X509::setID>(CKA_ID),
    onDemand(attributeRow<&X509::getSerialNumber, &X509::setSerialNumber>(CKA_SERIAL_NUMBER)),
    onDemand(attributeRow<&X509::getSubject, &X509::setSubject>(CKA_SUBJECT)),
    onDemand(attributeRow<&X509::getIssuer, &X509::setIssuer>(CKA_ISSUER)),
    onDemand(attributeRow<&X509::getValue, &X509::setValue>(CKA_VALUE)),
};

} // namespace

const AttributeTable X509PublicKeyCertificate::kAttributes =
    attributeTableOf(kRows, &Certificate::kAttributes);

} // namespace PKCS11
