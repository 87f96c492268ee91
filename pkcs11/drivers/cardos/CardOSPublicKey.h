#pragma once

#include "pkcs11/drivers/cardos/CardOSKey.h"

namespace PKCS11 {

/// The public half of a key pair; the card itself encrypts and verifies with it.
class CardOSPublicKey final : public CardOSKey<CardPublicKey> {
public:
    /// Reads the attribute file. Throws as CardOSToken's constructor does.
    CardOSPublicKey(CardOSToken& token, int index);

    CK_ULONG getModulusBits() override { return 8UL * static_cast<CK_ULONG>(keyLength()); }
    std::unique_ptr<Mechanism> createVerifyMechanism(CK_MECHANISM* mechanism, MechanismInfo* info) override;
    std::unique_ptr<Mechanism> createEncryptMechanism(CK_MECHANISM* mechanism, MechanismInfo* info) override;
};

} // namespace PKCS11
