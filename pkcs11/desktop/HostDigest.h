/// SHA-1 and SHA-2, computed by the library: Java signs with RSA-PSS only where the token knows the hash too.
#pragma once

#include "pkcs11/core/Mechanism.h"
#include "pkcs11/core/MechanismList.h"

#include <memory>

namespace PKCS11 {

/// Throws CKR_MECHANISM_INVALID (0x70) for any other digest.
std::unique_ptr<Mechanism> createHostDigest(CK_MECHANISM_TYPE type);

/// CKM_SHA_1 to CKM_SHA512, for tokens that sign with PSS.
void addHostDigests(MechanismList& mechanisms);

} // namespace PKCS11
