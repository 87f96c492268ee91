#include "pkcs11/drivers/ias/PKCS15TokenInfo.h"

namespace PKCS11 {

namespace {

using Info = PKCS15TokenInfo;

constexpr PKCS15Element<Info> kElements[] = {
    {0x02, &Info::version},  {0x04, &Info::serialNumber}, {0x0C, &Info::manufacturerID},
    {0x80, &Info::label},    {0x03, &Info::tokenflags},   {0x13, &Info::preferredLanguage},
    {0x83, &Info::issuerId}, {0x84, &Info::holderId},     {0xA5, &Info::lastUpdate, 0x18}};

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
