#pragma once

#include "pkcs11/drivers/cardos/CardOSKey.h"

namespace PKCS11 {

class CardOSPrivateKey final : public CardOSKey<CardPrivateKey> {
public:
    /// Reads the attribute file. Throws as CardOSToken's constructor does.
    CardOSPrivateKey(CardOSToken& token, int index);

    std::unique_ptr<Mechanism> createSignMechanism(CK_MECHANISM* mechanism, MechanismInfo* info) override;
    std::unique_ptr<Mechanism> createDecryptMechanism(CK_MECHANISM* mechanism, MechanismInfo* info) override;
};

} // namespace PKCS11
