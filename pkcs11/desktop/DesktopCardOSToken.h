#pragma once

#include "pkcs11/drivers/cardos/CardOSToken.h"

namespace PKCS11 {

/// A CardOS card that signs with RSA-PSS too: its raw operation is all that takes.
class DesktopCardOSToken final : public CardOSToken {
public:
    using CardOSToken::CardOSToken;

    void initMechanismList() override;
};

} // namespace PKCS11
