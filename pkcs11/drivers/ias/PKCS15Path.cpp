#include "pkcs11/drivers/ias/PKCS15Path.h"

namespace PKCS11 {

namespace {

constexpr PKCS15Element<PKCS15Path> kElements[] = {
    {&PKCS15Path::path, 0x04}, {&PKCS15Path::index, 0x02}, {&PKCS15Path::length, 0x80}};

} // namespace

void PKCS15Path::read(const BERCoder& node)
{
    *this = PKCS15Path();
    isPresent = true;
    if (hasTag(node, kPKCS15Sequence))
        readElements(node, *this, kElements, PKCS15Others::End);
}

BERCoder PKCS15Path::node() const
{
    return sequenceOf(*this, kElements);
}

} // namespace PKCS11
