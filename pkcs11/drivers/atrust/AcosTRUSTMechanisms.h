#pragma once

#include "pkcs11/drivers/acos/AcosMechanisms.h"

namespace PKCS11 {

class AcosTRUSTToken;

/// Signing with the card's one key.
class AcosTRUSTMechanismSign final : public AcosMechanismSign {
public:
    AcosTRUSTMechanismSign(AcosTRUSTToken& token, int knownLength);
};

/// Decryption with the same.
class AcosTRUSTMechanismDecrypt final : public AcosMechanismDecrypt {
public:
    AcosTRUSTMechanismDecrypt(AcosTRUSTToken& token, unsigned short fid, CK_MECHANISM_TYPE type);

protected:
    /// Throws CKR_MECHANISM_INVALID (0x70) for a key of another file.
    void requireKey() const override;

private:
    unsigned short m_fid;
};

/// Encryption with PSO ENCIPHER on the card; needs no login. A null output is answered with 256.
class ATRUSTMechanismEncrypt final : public Mechanism {
public:
    /// `knownLength` is that of the modulus, 0 while it was not read.
    ATRUSTMechanismEncrypt(AcosTRUSTToken& token, unsigned short fid, int knownLength)
        : m_token(token), m_fid(fid), m_knownLength(knownLength)
    {
    }

    /// Throws CKR_MECHANISM_INVALID (0x70) where the card refuses the data, CKR_DEVICE_ERROR (0x30) where it
    /// refuses the key, CKR_BUFFER_TOO_SMALL.
    void encrypt(CK_BYTE* data, CK_ULONG dataLen, CK_BYTE* out, CK_ULONG* outLen) override;

private:
    AcosTRUSTToken& m_token;
    unsigned short m_fid;
    int m_knownLength;
};

} // namespace PKCS11
