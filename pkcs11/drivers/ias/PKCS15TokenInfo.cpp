#include "pkcs11/drivers/ias/PKCS15TokenInfo.h"

namespace PKCS11 {

namespace {

using Info = PKCS15TokenInfo;

constexpr PKCS15Element<Info> kElements[] = {{&Info::version, kInteger},
                                             {&Info::serialNumber, kOctetString},
                                             {&Info::manufacturerID, kUTF8String},
                                             {&Info::label, contextTag(0)},
                                             {&Info::tokenflags, kBitString},
                                             {&Info::preferredLanguage, kPrintableString},
                                             {&Info::issuerId, contextTag(3)},
                                             {&Info::holderId, contextTag(4)},
                                             {&Info::lastUpdate, constructedTag(5), kGeneralizedTime}};

} // namespace

void PKCS15TokenInfo::read(const BERCoder& node)
{
    requireSequence(node, "PKCS15TokenInfo::Import: wrong first tag");
    *this = PKCS15TokenInfo();
    readElements(node, *this, kElements, PKCS15Others::End);
}

BERCoder PKCS15TokenInfo::node() const
{
    return sequenceOf(*this, kElements);
}

} // namespace PKCS11
