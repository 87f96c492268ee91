#pragma once

#include "pkcs11/drivers/common/CardObjects.h"

namespace PKCS11 {

class PIVJavaToken;

/// The key of a container, which never leaves the card.
class PIVJavaPrivateKey : public CardPrivateKey {
public:
    PIVJavaPrivateKey(PIVJavaToken& token, unsigned short word);

    std::unique_ptr<Mechanism> createSignMechanism(CK_MECHANISM* mechanism, MechanismInfo* info) override;
    std::unique_ptr<Mechanism> createDecryptMechanism(CK_MECHANISM* mechanism, MechanismInfo* info) override;

    PIVJavaToken& token() const { return m_token; }
    /// GENERAL AUTHENTICATE after the cached PIN; the response in the card's answer. An error of the card
    /// can end as an empty one; throws what PIVJavaToken::GeneralAuth throws.
    Blob authenticate(const Blob& data);

protected:
    /// Key reference in the high byte, algorithm identifier in the low one.
    virtual unsigned short word() const { return m_word; }

private:
    PIVJavaToken& m_token;
    unsigned short m_word;
};

} // namespace PKCS11
