#include "pkcs11/drivers/ias/PKCS15TokenInfo.h"

namespace PKCS11 {

namespace {

using Info = PKCS15TokenInfo;

constexpr PKCS15Element<Info> kElements[] = {
    {&Info::version, 0x02},  {&Info::serialNumber, 0x04}, {&Info::manufacturerID, 0x0C},
    {&Info::label, 0x80},    {&Info::tokenflags, 0x03},   {&Info::preferredLanguage, 0x13},
    {&Info::issuerId, 0x83}, {&Info::holderId, 0x84},     {&Info::lastUpdate, 0xA5, 0x18}};

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
