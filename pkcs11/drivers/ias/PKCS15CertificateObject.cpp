#include "pkcs11/drivers/ias/PKCS15CertificateObject.h"

namespace PKCS11 {

namespace {

constexpr char kUnknownType[] = "PKCS15CertificateObject::Import: Unknown Certificate type";
constexpr char kTooFewElements[] = "PKCS15CertificateObject::Import: coder size";
constexpr char kWrongTag[] = "PKCS15CertificateObject::Import: wrong tag";
constexpr char kTypeError[] = "PKCS15CertificateObject::Import: coding typeAttributes error";

constexpr PKCS15Element kClassElements[] = {{0x04}, {0x01}};
constexpr PKCS15Layout kClassLayout =
    pkcs15Layout(kClassElements, PKCS15Layout::Others::Skip, kWrongTag, kWrongTag);

constexpr PKCS15Element kTypeElements[] = {{0x02}};
constexpr PKCS15Layout kTypeLayout =
    pkcs15Layout(kTypeElements, PKCS15Layout::Others::Skip, kTypeError, kTypeError);

} // namespace

PKCS15CertificateObject::PKCS15CertificateObject()
    : PKCS15CommonObjectAttributes(kTypeError),
      m_classAttributes(kClassLayout),
      m_typeAttributes(kTypeLayout, PKCS15PathSequence::Place::First)
{
}

Blob PKCS15CertificateObject::serialNumber() const
{
    return objectType() == 0x30 || objectType() == 0xA0 ? m_typeAttributes.field(0) : Blob();
}

void PKCS15CertificateObject::read(const BERCoder& node)
{
    m_typeAttributes = PKCS15PathSequence(kTypeLayout, PKCS15PathSequence::Place::First);
    readCommon(node, {0x30, 0xA0, 0xA1, 0xA2, 0xA3, 0xA4, 0xA5}, kUnknownType);
    if (node.getSize() <= 1)
        throw kTooFewElements;
    m_classAttributes.take(node.component(1));
    if (const BERCoder* typeAttributes = componentOf(node, 2)) {
        if (!hasTag(*typeAttributes, 0xA1))
            throw kWrongTag;
        const BERCoder* inner = componentOf(*typeAttributes, 0);
        if (inner == nullptr)
            throw kTypeError;
        m_typeAttributes.take(*inner);
    }
}

void PKCS15CertificateObject::write(BERCoder& node) const
{
    writeCommon(node);
    putComponent(node, 1, m_classAttributes.node());
    const BERCoder* old = componentOf(node, 2);
    BERCoder typeAttributes = old != nullptr ? *old : BERCoder(0xA1);
    putComponent(typeAttributes, 0, m_typeAttributes.node());
    putComponent(node, 2, typeAttributes);
}

} // namespace PKCS11
