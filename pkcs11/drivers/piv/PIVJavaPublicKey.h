#pragma once

#include "pkcs11/drivers/common/CardObjects.h"

namespace PKCS11 {

class PIVJavaToken;

/// The public key of a container's certificate. Its operations exist, but no mechanism of the token leads to
/// them: CKA_ENCRYPT and CKA_VERIFY are false.
class PIVJavaPublicKey : public CardPublicKey {
public:
    PIVJavaPublicKey(PIVJavaToken& token, unsigned short word);

    std::unique_ptr<Mechanism> createVerifyMechanism(CK_MECHANISM* mechanism, MechanismInfo* info) override;
    std::unique_ptr<Mechanism> createEncryptMechanism(CK_MECHANISM* mechanism, MechanismInfo* info) override;

    /// Key reference word: key reference in the high byte, algorithm identifier in the low one.
    unsigned short word() const { return m_word; }

private:
    PIVJavaToken& m_token;
    unsigned short m_word;
};

} // namespace PKCS11
