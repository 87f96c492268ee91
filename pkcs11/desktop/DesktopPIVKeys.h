/// Keys of a PIV card that know their algorithm.
#pragma once

#include "pkcs11/desktop/PIVAlgorithm.h"
#include "pkcs11/drivers/piv/PIVJavaPrivateKey.h"
#include "pkcs11/drivers/piv/PIVJavaPublicKey.h"

namespace PKCS11 {

/// An EC key tells its curve and its point.
class DesktopPIVPublicKey final : public PIVJavaPublicKey {
public:
    DesktopPIVPublicKey(PIVJavaToken& token, unsigned short word, PIVAlgorithm algorithm);

    Blob getECParameters() const { return m_algorithm.ecParameters; }
    Blob getECPoint() const { return m_algorithm.ecPoint; }

protected:
    const AttributeTable& attributeTable() const override;

private:
    static const AttributeTable kECAttributes;

    PIVAlgorithm m_algorithm;
};

/// An EC key tells its curve and signs with CKM_ECDSA; RSA keys sign raw blocks too. Label and CKA_ID
/// are those of the key reference word, as in the product; the commands carry the key's real algorithm.
class DesktopPIVPrivateKey final : public PIVJavaPrivateKey {
public:
    DesktopPIVPrivateKey(PIVJavaToken& token, unsigned short word, PIVAlgorithm algorithm);

    /// None for a key on a curve that PIV does not have.
    std::unique_ptr<Mechanism> createSignMechanism(CK_MECHANISM* mechanism, MechanismInfo* info) override;
    std::unique_ptr<Mechanism> createDecryptMechanism(CK_MECHANISM* mechanism, MechanismInfo* info) override;

    Blob getECParameters() const { return m_algorithm.ecParameters; }

protected:
    const AttributeTable& attributeTable() const override;
    unsigned short word() const override;

private:
    static const AttributeTable kECAttributes;

    PIVAlgorithm m_algorithm;
};

} // namespace PKCS11
