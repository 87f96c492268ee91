#include "pkcs11/drivers/ias/PKCS15PrivateKeyObject.h"

namespace PKCS11 {

namespace {

constexpr char kUnknownType[] = "PKCS15PrivateKeyObject::Import: Unknown Private key type";
constexpr char kTooFewElements2[] = "PKCS15PrivateKeyObject::Import: coder.getSize() < 2";
constexpr char kTooFewElements3[] = "PKCS15PrivateKeyObject::Import: coder.getSize() < 3";
constexpr char kTooFewElements4[] = "PKCS15PrivateKeyObject::Import: coder.getSize() < 4";
constexpr char kKeyError[] = " PKCS15PrivateKeyObject::ImportKeyAttributes: codind error";

constexpr int kCommonPrivateKeyAttributes = 0xA0;

constexpr PKCS15Element kCredentialElements[] = {{0x02}, {0x04}};
constexpr PKCS15Layout kCredentialLayout =
    pkcs15Layout(kCredentialElements, PKCS15Layout::Others::Skip, nullptr, kKeyError);

// RSA: modulus length, key info, operations. Other keys have no modulus length.
constexpr PKCS15Element kTypeElements[] = {{0x02}, {0x02}, {0x03}};
constexpr PKCS15Layout kTypeLayout =
    pkcs15Layout(kTypeElements, PKCS15Layout::Others::Skip, kKeyError, kKeyError);

/// Where the element A0 { 30 { ... } } with the common private key attributes has its credential identifiers:
/// the place of the A0 { 30 { ... } } inside the SEQUENCE, or -1.
int findIdentifiers(const BERCoder& element)
{
    const BERCoder* attributes = componentOf(element, 0);
    if (attributes == nullptr || !hasTag(*attributes, 0x30))
        return -1;
    for (int i = 0; i < attributes->getSize(); ++i) {
        const BERCoder& identifiers = attributes->component(i);
        const BERCoder* first = componentOf(identifiers, 0);
        if (hasTag(identifiers, 0xA0) && first != nullptr && hasTag(*first, 0x30))
            return i;
    }
    return -1;
}

/// The place of the type attributes in a key record.
int typeAttributesPlace(const BERCoder& record)
{
    const BERCoder* third = componentOf(record, 2);
    return third != nullptr && hasTag(*third, kCommonPrivateKeyAttributes) ? 3 : 2;
}

} // namespace

PKCS15PrivateKeyObject::PKCS15PrivateKeyObject()
    : PKCS15CommonObjectAttributes(kKeyError),
      m_credential(kCredentialLayout),
      m_typeAttributes(kTypeLayout, PKCS15PathSequence::Place::First)
{
}

Blob PKCS15PrivateKeyObject::modulusLength() const
{
    return isRSA() ? m_typeAttributes.field(0) : Blob();
}

Blob PKCS15PrivateKeyObject::keyInfo() const
{
    return m_typeAttributes.field(isRSA() ? 1 : 0);
}

void PKCS15PrivateKeyObject::read(const BERCoder& node)
{
    m_credential = PKCS15Sequence(kCredentialLayout);
    readCommon(node, {0x30, 0xA0, 0xA1, 0xA2, 0xA3}, kUnknownType);
    if (node.getSize() < 2)
        throw kTooFewElements2;
    m_keyAttributes.take(node.component(1));
    if (node.getSize() < 3)
        throw kTooFewElements3;
    const int place = typeAttributesPlace(node);
    if (place == 3) {
        ImportCommonPrivateKeyAttributes(node.component(2));
        if (node.getSize() < 4)
            throw kTooFewElements4;
    }
    ImportKeyAttributes(node.component(place));
}

void PKCS15PrivateKeyObject::ImportCommonPrivateKeyAttributes(const BERCoder& element)
{
    const int identifiers = findIdentifiers(element);
    if (identifiers >= 0)
        m_credential.take(element.component(0).component(identifiers).component(0));
}

void PKCS15PrivateKeyObject::ImportKeyAttributes(const BERCoder& element)
{
    const BERCoder* attributes = componentOf(element, 0);
    if (!hasTag(element, 0xA1) || attributes == nullptr || !hasTag(*attributes, 0x30) ||
        attributes->getSize() == 0)
        throw kKeyError;
    m_typeAttributes.take(*attributes);
}

void PKCS15PrivateKeyObject::write(BERCoder& node) const
{
    writeCommon(node);
    putComponent(node, 1, m_keyAttributes.node());
    const int place = typeAttributesPlace(node);
    const BERCoder* old = componentOf(node, place);
    BERCoder typeAttributes = old != nullptr ? *old : BERCoder(0xA1);
    putComponent(typeAttributes, 0, m_typeAttributes.node());
    putComponent(node, place, typeAttributes);
}

} // namespace PKCS11
