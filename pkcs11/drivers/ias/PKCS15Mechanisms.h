/// Operations with the keys of an IAS-ECC card, which adds and removes the PKCS#1 padding itself. Update and
/// final steps are not offered.
#pragma once

#include "pkcs11/core/Mechanism.h"

namespace PKCS11 {

class PKCS15PrivateKey;

/// Signing with INTERNAL AUTHENTICATE; the data are a DigestInfo and go to the card as given.
class PKCS15MechanismSign final : public Mechanism {
public:
    explicit PKCS15MechanismSign(PKCS15PrivateKey& key) : m_key(key) {}

    /// Throws CKR_DATA_LEN_RANGE (0x21) for more than 255 bytes, CKR_DEVICE_ERROR when the card refuses.
    void sign(CK_BYTE* data, CK_ULONG dataLen, CK_BYTE* out, CK_ULONG* outLen) override;

private:
    PKCS15PrivateKey& m_key;
};

/// Decryption with PSO DECIPHER, in a chain of commands where one does not hold the data.
class PKCS15MechanismDecrypt final : public Mechanism {
public:
    explicit PKCS15MechanismDecrypt(PKCS15PrivateKey& key) : m_key(key) {}

    /// Throws CKR_DEVICE_ERROR when the card refuses.
    void decrypt(CK_BYTE* data, CK_ULONG dataLen, CK_BYTE* out, CK_ULONG* outLen) override;

private:
    PKCS15PrivateKey& m_key;
};

} // namespace PKCS11
