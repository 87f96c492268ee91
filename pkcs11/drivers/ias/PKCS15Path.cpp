#include "pkcs11/drivers/ias/PKCS15Path.h"

namespace PKCS11 {

namespace {

constexpr PKCS15Element<PKCS15Path> kElements[] = {
    {&PKCS15Path::path, kOctetString}, {&PKCS15Path::index, kInteger}, {&PKCS15Path::length, contextTag(0)}};

} // namespace

void PKCS15Path::read(const BERCoder& node)
{
    *this = PKCS15Path();
    isPresent = true;
    if (hasTag(node, kSequence))
        readElements(node, *this, kElements, PKCS15Others::End);
}

BERCoder PKCS15Path::node() const
{
    return sequenceOf(*this, kElements);
}

} // namespace PKCS11
