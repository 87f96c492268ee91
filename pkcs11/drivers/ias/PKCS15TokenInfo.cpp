#include "pkcs11/drivers/ias/PKCS15TokenInfo.h"

namespace PKCS11 {

namespace {

constexpr PKCS15Element kElements[] = {{0x02}, {0x04}, {0x0C}, {0x80},      {0x03},
                                       {0x13}, {0x83}, {0x84}, {0xA5, 0x18}};
constexpr PKCS15Layout kLayout =
    pkcs15Layout(kElements, PKCS15Layout::Others::End, "PKCS15TokenInfo::Import: wrong first tag", nullptr);

} // namespace

PKCS15TokenInfo::PKCS15TokenInfo() : PKCS15Sequence(kLayout) {}

} // namespace PKCS11
