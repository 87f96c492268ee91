#include "pkcs11/drivers/ias/PKCS15PrivateKeyObject.h"

namespace PKCS11 {

namespace {

using Key = PKCS15PrivateKeyObject;

constexpr char kUnknownType[] = "PKCS15PrivateKeyObject::Import: Unknown Private key type";
constexpr char kTooFewElements2[] = "PKCS15PrivateKeyObject::Import: coder.getSize() < 2";
constexpr char kTooFewElements3[] = "PKCS15PrivateKeyObject::Import: coder.getSize() < 3";
constexpr char kTooFewElements4[] = "PKCS15PrivateKeyObject::Import: coder.getSize() < 4";
constexpr char kKeyError[] = " PKCS15PrivateKeyObject::ImportKeyAttributes: codind error";

constexpr int kCommonPrivateKeyAttributes = 0xA0;

constexpr int kTypeAttributes = 0xA1;
constexpr int kRSA = 0x30;

constexpr PKCS15Element<Key> kCredentialElements[] = {{&Key::keyIdentifierType, 0x02},
                                                      {&Key::keyIdentifierValue, 0x04}};
constexpr PKCS15Element<Key> kRSAElements[] = {
    {&Key::modulusLength, 0x02}, {&Key::keyInfo, 0x02}, {&Key::operations, 0x03}};
constexpr PKCS15Element<Key> kOtherElements[] = {{&Key::keyInfo, 0x02}, {&Key::operations, 0x03}};

} // namespace

PKCS15PrivateKeyObject::PKCS15PrivateKeyObject() : PKCS15CommonObjectAttributes(kKeyError) {}

void PKCS15PrivateKeyObject::read(const BERCoder& node)
{
    *this = PKCS15PrivateKeyObject();
    readCommon(node, {kRSA, 0xA0, 0xA1, 0xA2, 0xA3}, kUnknownType);
    if (node.getSize() < 2)
        throw kTooFewElements2;
    key.read(node.component(1));
    if (node.getSize() < 3)
        throw kTooFewElements3;
    if (!hasTag(node.component(2), kCommonPrivateKeyAttributes)) {
        ImportKeyAttributes(node.component(2));
        return;
    }
    ImportCommonPrivateKeyAttributes(node.component(2));
    if (node.getSize() < 4)
        throw kTooFewElements4;
    ImportKeyAttributes(node.component(3));
}

void PKCS15PrivateKeyObject::ImportCommonPrivateKeyAttributes(const BERCoder& element)
{
    // A0 { 30 { A0 { 30 { type, value } } } }, among other elements of the SEQUENCE.
    const BERCoder* attributes = componentOf(element, 0);
    if (attributes == nullptr || !hasTag(*attributes, kPKCS15Sequence))
        return;
    for (int i = 0; i < attributes->getSize(); ++i) {
        const BERCoder* credential = valueOf(attributes->component(i), 0xA0, kPKCS15Sequence);
        if (credential != nullptr) {
            readElements(*credential, *this, kCredentialElements);
            return;
        }
    }
}

void PKCS15PrivateKeyObject::ImportKeyAttributes(const BERCoder& element)
{
    const BERCoder* attributes = valueOf(element, kTypeAttributes, kPKCS15Sequence);
    if (attributes == nullptr || attributes->getSize() == 0)
        throw kKeyError;
    path.read(attributes->component(0));
    if (objectType == kRSA)
        readElements(*attributes, *this, kRSAElements, PKCS15Others::Skip, 1);
    else
        readElements(*attributes, *this, kOtherElements, PKCS15Others::Skip, 1);
}

BERCoder PKCS15PrivateKeyObject::node() const
{
    BERCoder record = elementOf(objectType, {PKCS15CommonObjectAttributes::node(), key.node()});
    if (!keyIdentifierType.empty() || !keyIdentifierValue.empty()) {
        const BERCoder credential = elementOf(0xA0, {sequenceOf(*this, kCredentialElements)});
        record.append(elementOf(kCommonPrivateKeyAttributes, {elementOf(kPKCS15Sequence, {credential})}));
    }
    record.append(
        elementOf(kTypeAttributes, {objectType == kRSA ? sequenceOf(*this, kRSAElements, {path.node()})
                                                       : sequenceOf(*this, kOtherElements, {path.node()})}));
    return record;
}

} // namespace PKCS11
