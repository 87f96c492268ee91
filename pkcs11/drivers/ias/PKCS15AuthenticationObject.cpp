#include "pkcs11/drivers/ias/PKCS15AuthenticationObject.h"

namespace PKCS11 {

namespace {

using Pin = PKCS15PinAttributes;

constexpr char kUnknownType[] = "PKCS15AuthenticationObject::Import: Unknown Authentication Object type";
constexpr char kCodingError[] = "PKCS15AuthenticationObject::Import: coding error";
constexpr char kWrongTag[] = "PKCS15AuthenticationObject::Import: wrong tag";
// The PIN attributes name the authentication object, deliberately.
constexpr char kPinError[] = "PKCS15AuthenticationObject::Import: coding typeAttributes error";

constexpr int kPinObject = 0x30;
constexpr int kTypeAttributes = 0xA1;

constexpr PKCS15Element<Pin> kPinElements[] = {{&Pin::pinFlags, 0x03},  {&Pin::pinType, 0x0A},
                                               {&Pin::minLength, 0x02}, {&Pin::storedLength, 0x02},
                                               {&Pin::maxLength, 0x02}, {&Pin::pinReference, 0x80},
                                               {&Pin::padChar, 0x04},   {&Pin::lastPinChange, 0x18}};

constexpr PKCS15Element<PKCS15AuthenticationObject> kClassElements[] = {
    {&PKCS15AuthenticationObject::authId, 0x04}};

} // namespace

PKCS15PinAttributes::PKCS15PinAttributes() : PKCS15Record(kPinError) {}

void PKCS15PinAttributes::read(const BERCoder& node)
{
    requireSequence(node, kPinError);
    *this = PKCS15PinAttributes();
    readElements(node, *this, kPinElements);
    if (const int place = findComponent(node, kPKCS15Sequence); place >= 0)
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
    readCommon(node, {kPinObject, 0xA0, 0xA1, 0xA2}, kUnknownType);
    if (objectType != kPinObject)
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
