#include "pkcs11/drivers/ias/PKCS15CommonObjectAttributes.h"

#include <algorithm>

namespace PKCS11 {

namespace {

using Common = PKCS15CommonObjectAttributes;

constexpr char kCodingError[] = "PKCS15CommonObjectAttributes::Import: coding error";

constexpr PKCS15Element<Common> kElements[] = {{&Common::label, 0x0C},
                                               {&Common::flags, 0x03},
                                               {&Common::objectAuthId, 0x04},
                                               {&Common::userConsent, 0x02}};

} // namespace

PKCS15CommonObjectAttributes::PKCS15CommonObjectAttributes() : PKCS15Record(kCodingError) {}

void PKCS15CommonObjectAttributes::read(const BERCoder& node)
{
    for (const auto& element : kElements)
        (this->*element.value).clear();
    if (hasTag(node, kPKCS15Sequence) && !readElements(node, *this, kElements, PKCS15Others::End))
        throw kCodingError;
}

BERCoder PKCS15CommonObjectAttributes::node() const
{
    return sequenceOf(*this, kElements);
}

void PKCS15CommonObjectAttributes::readCommon(const BERCoder& record, std::initializer_list<int> types,
                                              const char* unknownType)
{
    objectType = record.getTag().front();
    if (std::find(types.begin(), types.end(), objectType) == types.end())
        throw unknownType;
    const BERCoder* common = componentOf(record, 0);
    PKCS15CommonObjectAttributes::read(common != nullptr ? *common : BERCoder(kPKCS15Sequence));
}

} // namespace PKCS11
