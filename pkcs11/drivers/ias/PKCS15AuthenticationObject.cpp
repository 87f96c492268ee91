#include "pkcs11/drivers/ias/PKCS15AuthenticationObject.h"

namespace PKCS11 {

namespace {

using Pin = PKCS15PinAttributes;

constexpr char kUnknownType[] = "PKCS15AuthenticationObject::Import: Unknown Authentication Object type";
constexpr char kCodingError[] = "PKCS15AuthenticationObject::Import: coding error";
constexpr char kWrongTag[] = "PKCS15AuthenticationObject::Import: wrong tag";
// The PIN attributes name the authentication object, deliberately.
constexpr char kPinError[] = "PKCS15AuthenticationObject::Import: coding typeAttributes error";

constexpr PKCS15Element<Pin> kPinElements[] = {
    {&Pin::pinFlags, kBitString},  {&Pin::pinType, kEnumerated},
    {&Pin::minLength, kInteger},   {&Pin::storedLength, kInteger},
    {&Pin::maxLength, kInteger},   {&Pin::pinReference, contextTag(0)},
    {&Pin::padChar, kOctetString}, {&Pin::lastPinChange, kGeneralizedTime}};

constexpr PKCS15Element<PKCS15AuthenticationObject> kClassElements[] = {
    {&PKCS15AuthenticationObject::authId, kOctetString}};

} // namespace

PKCS15PinAttributes::PKCS15PinAttributes() : PKCS15Record(kPinError) {}

void PKCS15PinAttributes::read(const BERCoder& node)
{
    requireSequence(node, kPinError);
    *this = PKCS15PinAttributes();
    readElements(node, *this, kPinElements);
    if (const int place = findComponent(node, kSequence); place >= 0)
        path.read(node.component(place));
}

BERCoder PKCS15PinAttributes::node() const
{
    BERCoder sequence = sequenceOf(*this, kPinElements);
    if (!path.isEmpty())
        sequence.append(path.node());
    return sequence;
}

PKCS15AuthenticationObject::PKCS15AuthenticationObject() : PKCS15CommonObjectAttributes(kCodingError) {}

void PKCS15AuthenticationObject::read(const BERCoder& node)
{
    *this = PKCS15AuthenticationObject();
    readCommon(node, 2, kUnknownType);
    if (objectType != kSequence)
        pin.reset();
    if (node.getSize() == 0)
        throw kCodingError;
    if (const BERCoder* classAttributes = componentOf(node, 1)) {
        requireSequence(*classAttributes, kCodingError);
        readElements(*classAttributes, *this, kClassElements);
    }
    if (const BERCoder* typeAttributes = componentOf(node, 2)) {
        if (!hasTag(*typeAttributes, kTypeAttributes))
            throw kWrongTag;
        if (!pin)
            return;
        if (typeAttributes->getSize() == 0)
            throw kCodingError;
        pin->read(typeAttributes->component(0));
    }
}

BERCoder PKCS15AuthenticationObject::node() const
{
    BERCoder record =
        elementOf(objectType, {PKCS15CommonObjectAttributes::node(), sequenceOf(*this, kClassElements)});
    if (pin && !pin->isEmpty())
        record.append(elementOf(kTypeAttributes, {pin->node()}));
    return record;
}

} // namespace PKCS11
