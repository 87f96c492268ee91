#pragma once

#include "pkcs11/core/Mechanism.h"

namespace PKCS11 {

class PIVJavaPrivateKey;

/// CKM_ECDSA with a key on a PIV card: a hash in, r and s out, each as long as a coordinate.
class PIVECDSASign final : public Mechanism {
public:
    /// Lengths in bytes.
    PIVECDSASign(PIVJavaPrivateKey& key, int fieldLength) : m_key(key), m_fieldLength(fieldLength) {}

    /// Takes a hash of any length: of a longer one than the key's, the first bytes count (FIPS 186-4, 6.4).
    /// Throws CKR_DATA_LEN_RANGE (0x21) for none, CKR_DEVICE_ERROR (0x30) where the card gives no signature.
    void sign(CK_BYTE* data, CK_ULONG dataLen, CK_BYTE* out, CK_ULONG* outLen) override;

private:
    PIVJavaPrivateKey& m_key;
    int m_fieldLength;
};

} // namespace PKCS11
