#pragma once

#include "pkcs11/Edition.h"

namespace PKCS11 {

/// What desktop programs need beyond the product. The preset `desktop` puts it in force.
class DesktopEdition final : public Edition {
public:
    static DesktopEdition& instance();

    /// Desktop clients pass over a token without CKF_TOKEN_INITIALIZED; the drivers do not report it.
    CK_FLAGS addedTokenFlags() const override { return CKF_TOKEN_INITIALIZED; }
};

} // namespace PKCS11
