#include "pkcs11/drivers/ias/PKCS15DataObject.h"

namespace PKCS11 {

namespace {

using Data = PKCS15DataObject;

constexpr char kUnknownType[] = "PKCS15DataObject::Import:unknown type";
constexpr char kTooFewElements1[] = "PKCS15DataObject::Import:code size 1";
constexpr char kTooFewElements2[] = "PKCS15DataObject::Import:code size 2";
// The certificate object's text, deliberately.
constexpr char kWrongTag[] = "PKCS15CertificateObject::Import: wrong tag";

constexpr int kObjectIdentifierData = constructedTag(1);

constexpr PKCS15Element<Data> kClassElements[] = {{&Data::applicationName, kUTF8String},
                                                  {&Data::applicationOID, kObjectIdentifier}};
constexpr PKCS15Element<Data> kObjectElements[] = {{&Data::objectOID, kObjectIdentifier}};

/// The element whose components are an OID and a Path: the type attributes, or the SEQUENCE in them.
const BERCoder& identifiedValue(const BERCoder& typeAttributes)
{
    const BERCoder* first = componentOf(typeAttributes, 0);
    const BERCoder* oid = first != nullptr ? componentOf(*first, 0) : nullptr;
    return oid != nullptr && hasTag(*oid, kObjectIdentifier) ? *first : typeAttributes;
}

} // namespace

PKCS15DataObject::PKCS15DataObject() : PKCS15CommonObjectAttributes(kUnknownType) {}

void PKCS15DataObject::read(const BERCoder& node)
{
    *this = PKCS15DataObject();
    readCommon(node, 1, kUnknownType);
    if (node.getSize() < 2)
        throw kTooFewElements1;
    if (hasTag(node.component(1), kSequence))
        readElements(node.component(1), *this, kClassElements);
    if (node.getSize() < 3)
        throw kTooFewElements2;
    const BERCoder& typeAttributes = node.component(2);
    if (!hasTag(typeAttributes, kTypeAttributes))
        throw kWrongTag;
    if (objectType != kObjectIdentifierData) {
        if (typeAttributes.getSize() > 0)
            path.read(typeAttributes.component(0));
        return;
    }
    const BERCoder& value = identifiedValue(typeAttributes);
    readElements(value, *this, kObjectElements);
    if (const int place = findComponent(value, kSequence); place >= 0)
        path.read(value.component(place));
}

BERCoder PKCS15DataObject::node() const
{
    BERCoder typeAttributes = elementOf(kTypeAttributes, {});
    if (objectType == kObjectIdentifierData && !objectOID.empty())
        typeAttributes.append({kObjectIdentifier, objectOID});
    typeAttributes.append(path.node());
    return elementOf(objectType, {PKCS15CommonObjectAttributes::node(), sequenceOf(*this, kClassElements),
                                  typeAttributes});
}

} // namespace PKCS11
