#include "pkcs11/drivers/ias/PKCS15CommonObjectAttributes.h"

namespace PKCS11 {

namespace {

using Common = PKCS15CommonObjectAttributes;

constexpr char kCodingError[] = "PKCS15CommonObjectAttributes::Import: coding error";

constexpr PKCS15Element<Common> kElements[] = {{&Common::label, kUTF8String},
                                               {&Common::flags, kBitString},
                                               {&Common::objectAuthId, kOctetString},
                                               {&Common::userConsent, kInteger}};

} // namespace

PKCS15CommonObjectAttributes::PKCS15CommonObjectAttributes() : PKCS15Record(kCodingError) {}

void PKCS15CommonObjectAttributes::read(const BERCoder& node)
{
    for (const auto& element : kElements)
        (this->*element.value).clear();
    if (hasTag(node, kSequence) && !readElements(node, *this, kElements, PKCS15Others::End))
        throw kCodingError;
}

BERCoder PKCS15CommonObjectAttributes::node() const
{
    return sequenceOf(*this, kElements);
}

void PKCS15CommonObjectAttributes::readCommon(const BERCoder& record, unsigned char last,
                                              const char* unknownType)
{
    objectType = record.getTag().front();
    if (objectType != kSequence && (objectType < constructedTag(0) || objectType > constructedTag(last)))
        throw unknownType;
    const BERCoder* common = componentOf(record, 0);
    PKCS15CommonObjectAttributes::read(common != nullptr ? *common : BERCoder(kSequence));
}

} // namespace PKCS11
