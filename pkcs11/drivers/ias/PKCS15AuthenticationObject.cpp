#include "pkcs11/drivers/ias/PKCS15AuthenticationObject.h"

namespace PKCS11 {

namespace {

constexpr char kUnknownType[] = "PKCS15AuthenticationObject::Import: Unknown Authentication Object type";
constexpr char kCodingError[] = "PKCS15AuthenticationObject::Import: coding error";
constexpr char kWrongTag[] = "PKCS15AuthenticationObject::Import: wrong tag";
// The PIN attributes name the authentication object on purpose.
constexpr char kPinError[] = "PKCS15AuthenticationObject::Import: coding typeAttributes error";

constexpr int kPinObject = 0x30;

constexpr PKCS15Element kPinElements[] = {{0x03}, {0x0A}, {0x02}, {0x02}, {0x02}, {0x80}, {0x04}, {0x18}};
constexpr PKCS15Layout kPinLayout =
    pkcs15Layout(kPinElements, PKCS15Layout::Others::Skip, kPinError, kPinError);

constexpr PKCS15Element kClassElements[] = {{0x04}};
constexpr PKCS15Layout kClassLayout =
    pkcs15Layout(kClassElements, PKCS15Layout::Others::Skip, kCodingError, kCodingError);

} // namespace

PKCS15PinAttributes::PKCS15PinAttributes() : PKCS15PathSequence(kPinLayout, Place::Anywhere) {}

PKCS15AuthenticationObject::PKCS15AuthenticationObject()
    : PKCS15CommonObjectAttributes(kCodingError), m_classAttributes(kClassLayout), m_pin(std::in_place)
{
}

void PKCS15AuthenticationObject::read(const BERCoder& node)
{
    m_classAttributes = PKCS15Sequence(kClassLayout);
    m_pin.reset();
    readCommon(node, {kPinObject, 0xA0, 0xA1, 0xA2}, kUnknownType);
    if (objectType() == kPinObject)
        m_pin.emplace();
    if (node.getSize() == 0)
        throw kCodingError;
    if (const BERCoder* classAttributes = componentOf(node, 1))
        m_classAttributes.take(*classAttributes);
    if (const BERCoder* typeAttributes = componentOf(node, 2)) {
        if (!hasTag(*typeAttributes, 0xA1))
            throw kWrongTag;
        if (!m_pin)
            return;
        const BERCoder* pin = componentOf(*typeAttributes, 0);
        if (pin == nullptr)
            throw kCodingError;
        m_pin->take(*pin);
    }
}

void PKCS15AuthenticationObject::write(BERCoder& node) const
{
    writeCommon(node);
    putComponent(node, 1, m_classAttributes.node());
    if (!m_pin)
        return;
    const BERCoder* old = componentOf(node, 2);
    BERCoder typeAttributes = old != nullptr ? *old : BERCoder(0xA1);
    putComponent(typeAttributes, 0, m_pin->node());
    putComponent(node, 2, typeAttributes);
}

} // namespace PKCS11
