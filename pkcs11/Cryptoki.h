/// The types and constants of PKCS#11 v2.20, from the p11-kit header, and the one vendor attribute that the
/// trace names.
#pragma once

#include <p11-kit/pkcs11.h>

namespace PKCS11 {

static_assert(sizeof(void*) != 4 || sizeof(CK_ULONG) == 4, "32 bits wide on the target");

/// Nickname attribute that NSS asks for; no object of this library has it.
constexpr CK_ATTRIBUTE_TYPE CKA_VENDOR_NETSCAPE_NAME = 0xCE534352UL;

} // namespace PKCS11
