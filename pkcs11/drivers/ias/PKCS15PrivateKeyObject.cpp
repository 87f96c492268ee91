#include "pkcs11/drivers/ias/PKCS15PrivateKeyObject.h"

namespace PKCS11 {

namespace {

using Key = PKCS15PrivateKeyObject;

constexpr char kUnknownType[] = "PKCS15PrivateKeyObject::Import: Unknown Private key type";
constexpr char kTooFewElements2[] = "PKCS15PrivateKeyObject::Import: coder.getSize() < 2";
constexpr char kTooFewElements3[] = "PKCS15PrivateKeyObject::Import: coder.getSize() < 3";
constexpr char kTooFewElements4[] = "PKCS15PrivateKeyObject::Import: coder.getSize() < 4";
// The blank and the spelling are the trace's own.
constexpr char kKeyError[] = " PKCS15PrivateKeyObject::ImportKeyAttributes: codind error";

constexpr int kCommonPrivateKeyAttributes = constructedTag(0);
constexpr int kCredential = constructedTag(0);

constexpr PKCS15Element<Key> kCredentialElements[] = {{&Key::keyIdentifierType, kInteger},
                                                      {&Key::keyIdentifierValue, kOctetString}};
constexpr PKCS15Element<Key> kRSAElements[] = {
    {&Key::modulusLength, kInteger}, {&Key::keyInfo, kInteger}, {&Key::operations, kBitString}};
constexpr PKCS15Element<Key> kOtherElements[] = {{&Key::keyInfo, kInteger}, {&Key::operations, kBitString}};

} // namespace

PKCS15PrivateKeyObject::PKCS15PrivateKeyObject() : PKCS15CommonObjectAttributes(kKeyError) {}

void PKCS15PrivateKeyObject::read(const BERCoder& node)
{
    *this = PKCS15PrivateKeyObject();
    readCommon(node, 3, kUnknownType);
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
    if (attributes == nullptr || !hasTag(*attributes, kSequence))
        return;
    for (int i = 0; i < attributes->getSize(); ++i) {
        const BERCoder* credential = valueOf(attributes->component(i), kCredential, kSequence);
        if (credential != nullptr) {
            readElements(*credential, *this, kCredentialElements);
            return;
        }
    }
}

void PKCS15PrivateKeyObject::ImportKeyAttributes(const BERCoder& element)
{
    const BERCoder* attributes = valueOf(element, kTypeAttributes, kSequence);
    if (attributes == nullptr || attributes->getSize() == 0)
        throw kKeyError;
    path.read(attributes->component(0));
    if (objectType == kSequence)
        readElements(*attributes, *this, kRSAElements, PKCS15Others::Skip, 1);
    else
        readElements(*attributes, *this, kOtherElements, PKCS15Others::Skip, 1);
}

BERCoder PKCS15PrivateKeyObject::node() const
{
    BERCoder record = elementOf(objectType, {PKCS15CommonObjectAttributes::node(), key.node()});
    if (!keyIdentifierType.empty() || !keyIdentifierValue.empty()) {
        const BERCoder credential = elementOf(kCredential, {sequenceOf(*this, kCredentialElements)});
        record.append(elementOf(kCommonPrivateKeyAttributes, {elementOf(kSequence, {credential})}));
    }
    record.append(elementOf(kTypeAttributes,
                            {objectType == kSequence ? sequenceOf(*this, kRSAElements, {path.node()})
                                                     : sequenceOf(*this, kOtherElements, {path.node()})}));
    return record;
}

} // namespace PKCS11
