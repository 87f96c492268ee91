#include "pkcs11/drivers/ias/PKCS15CertificateObject.h"

namespace PKCS11 {

namespace {

using Certificate = PKCS15CertificateObject;

constexpr char kUnknownType[] = "PKCS15CertificateObject::Import: Unknown Certificate type";
constexpr char kTooFewElements[] = "PKCS15CertificateObject::Import: coder size";
constexpr char kWrongTag[] = "PKCS15CertificateObject::Import: wrong tag";
constexpr char kTypeError[] = "PKCS15CertificateObject::Import: coding typeAttributes error";

constexpr PKCS15Element<Certificate> kClassElements[] = {{&Certificate::iD, kOctetString},
                                                         {&Certificate::authority, kBoolean}};
constexpr PKCS15Element<Certificate> kTypeElements[] = {{&Certificate::serialNumber, kInteger}};

} // namespace

PKCS15CertificateObject::PKCS15CertificateObject() : PKCS15CommonObjectAttributes(kTypeError) {}

void PKCS15CertificateObject::read(const BERCoder& node)
{
    *this = PKCS15CertificateObject();
    readCommon(node, 5, kUnknownType);
    if (node.getSize() <= 1)
        throw kTooFewElements;
    requireSequence(node.component(1), kWrongTag);
    readElements(node.component(1), *this, kClassElements);
    const BERCoder* typeAttributes = componentOf(node, 2);
    if (typeAttributes == nullptr)
        return;
    if (!hasTag(*typeAttributes, kTypeAttributes))
        throw kWrongTag;
    if (typeAttributes->getSize() == 0)
        throw kTypeError;
    const BERCoder& inner = typeAttributes->component(0);
    requireSequence(inner, kTypeError);
    if (inner.getSize() > 0)
        path.read(inner.component(0));
    if (objectType == kSequence || objectType == constructedTag(0))
        readElements(inner, *this, kTypeElements, PKCS15Others::Skip, 1);
}

BERCoder PKCS15CertificateObject::node() const
{
    BERCoder record =
        elementOf(objectType, {PKCS15CommonObjectAttributes::node(), sequenceOf(*this, kClassElements)});
    if (!path.isEmpty() || !serialNumber.empty())
        record.append(elementOf(kTypeAttributes, {sequenceOf(*this, kTypeElements, {path.node()})}));
    return record;
}

} // namespace PKCS11
