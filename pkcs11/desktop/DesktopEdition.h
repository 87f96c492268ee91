#pragma once

#include "pkcs11/Edition.h"

namespace PKCS11 {

/// What desktop programs need beyond the product. The preset `desktop` puts it in force.
class DesktopEdition final : public Edition {
public:
    static DesktopEdition& instance();

    std::unique_ptr<Token> createDriver(const Blob& cardType, PCSCSlot& slot) override;
    /// Desktop clients pass over a token without CKF_TOKEN_INITIALIZED; the drivers do not report it.
    CK_FLAGS addedTokenFlags() const override { return CKF_TOKEN_INITIALIZED; }

    /// With RSA-PSS for the tokens that list it, and in parts.
    std::unique_ptr<Mechanism> createSignMechanism(PrivateKey& key, CK_MECHANISM* mechanism,
                                                   MechanismInfo* info) override;
};

} // namespace PKCS11
