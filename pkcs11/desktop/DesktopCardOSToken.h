#pragma once

#include "pkcs11/drivers/cardos/CardOSToken.h"

namespace PKCS11 {

/// A CardOS card that signs with RSA-PSS too: its raw operation is all that takes. Hashes are computed by the
/// library.
class DesktopCardOSToken final : public CardOSToken {
public:
    using CardOSToken::CardOSToken;

    void initMechanismList() override;
    std::unique_ptr<Mechanism> createMechanismDigest(CK_MECHANISM* mechanism) override;
};

} // namespace PKCS11
