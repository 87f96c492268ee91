#include "pkcs11/drivers/ias/PKCS15DataObject.h"

namespace PKCS11 {

namespace {

constexpr char kUnknownType[] = "PKCS15DataObject::Import:unknown type";
constexpr char kTooFewElements1[] = "PKCS15DataObject::Import:code size 1";
constexpr char kTooFewElements2[] = "PKCS15DataObject::Import:code size 2";
// The certificate object's text, on purpose.
constexpr char kWrongTag[] = "PKCS15CertificateObject::Import: wrong tag";

constexpr int kObjectIdentifierData = 0xA1;

constexpr PKCS15Element kClassElements[] = {{0x0C}, {0x06}};
constexpr PKCS15Layout kClassLayout =
    pkcs15Layout(kClassElements, PKCS15Layout::Others::Skip, nullptr, kUnknownType);

/// The element whose components are an OID and a Path: the type attributes, or the SEQUENCE in them.
const BERCoder& identifiedValue(const BERCoder& typeAttributes)
{
    const BERCoder* first = componentOf(typeAttributes, 0);
    const BERCoder* oid = first != nullptr ? componentOf(*first, 0) : nullptr;
    return oid != nullptr && hasTag(*oid, 0x06) ? *first : typeAttributes;
}

} // namespace

PKCS15DataObject::PKCS15DataObject()
    : PKCS15CommonObjectAttributes(kUnknownType), m_classAttributes(kClassLayout)
{
}

void PKCS15DataObject::read(const BERCoder& node)
{
    m_path = PKCS15Path();
    m_objectOID.clear();
    readCommon(node, {0x30, 0xA0, kObjectIdentifierData}, kUnknownType);
    if (node.getSize() < 2)
        throw kTooFewElements1;
    m_classAttributes.take(node.component(1));
    if (node.getSize() < 3)
        throw kTooFewElements2;
    const BERCoder& typeAttributes = node.component(2);
    if (!hasTag(typeAttributes, 0xA1))
        throw kWrongTag;
    if (objectType() != kObjectIdentifierData) {
        const BERCoder* path = componentOf(typeAttributes, 0);
        m_path.take(path != nullptr ? *path : BERCoder(0x30));
        return;
    }
    const BERCoder& value = identifiedValue(typeAttributes);
    if (const int oid = findComponent(value, 0x06); oid >= 0)
        m_objectOID = value.component(oid).getValue();
    if (const int path = findComponent(value, 0x30); path >= 0)
        m_path.take(value.component(path));
}

void PKCS15DataObject::write(BERCoder& node) const
{
    writeCommon(node);
    putComponent(node, 1, m_classAttributes.node());
    const BERCoder* old = componentOf(node, 2);
    BERCoder typeAttributes = old != nullptr ? *old : BERCoder(0xA1);
    if (objectType() != kObjectIdentifierData) {
        putComponent(typeAttributes, 0, m_path.node());
    } else if (m_path.isPresent()) {
        BERCoder& value =
            &identifiedValue(typeAttributes) == &typeAttributes ? typeAttributes : typeAttributes[0];
        const int place = findComponent(value, 0x30);
        putComponent(value, place < 0 ? value.getSize() : place, m_path.node());
    }
    putComponent(node, 2, typeAttributes);
}

} // namespace PKCS11
