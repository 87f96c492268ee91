#pragma once

#include "pkcs11/drivers/common/CardObjects.h"

namespace PKCS11 {

class PIVJavaToken;

/// The key of a container, which never leaves the card.
class PIVJavaPrivateKey final : public CardPrivateKey {
public:
    PIVJavaPrivateKey(PIVJavaToken& token, unsigned short word);

    std::unique_ptr<Mechanism> createSignMechanism(CK_MECHANISM* mechanism, MechanismInfo* info) override;
    std::unique_ptr<Mechanism> createDecryptMechanism(CK_MECHANISM* mechanism, MechanismInfo* info) override;

    PIVJavaToken& token() const { return m_token; }
    /// Key reference word: key reference in the high byte, algorithm identifier in the low one.
    unsigned short word() const { return m_word; }

private:
    PIVJavaToken& m_token;
    unsigned short m_word;
};

} // namespace PKCS11
