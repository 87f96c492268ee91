#pragma once

#include "pkcs11/core/Mechanism.h"
#include "pkcs11/drivers/acos/AcosToken.h"

namespace PKCS11 {

/// Length of every answer to a null output, whatever the key.
constexpr int kAcosAnnouncedLength = 256;

/// How a family of ACOS cards reaches a private key, and what it does differently.
struct AcosKeyAccess {
    unsigned char reference;    ///< key reference on the card
    const char* where;          ///< where-text of CKR_USER_NOT_LOGGED_IN
    bool namesFailures = false; ///< and of each other failure that has none
    bool signWrapsLc = false;   ///< more than 255 bytes go out under a wrapped Lc instead of being refused
    bool decryptsRaw = false;   ///< CKM_RSA_X_509 has a result too
};

/// Signing with INTERNAL AUTHENTICATE; the data go to the card as given, which builds the block around them.
/// A null output is answered with 256, whatever the key.
class AcosMechanismSign : public Mechanism {
public:
    /// The token must outlive the operation, as the token's sessions do. `knownLength` is that of the
    /// modulus, 0 while it was not read.
    AcosMechanismSign(AcosToken& token, const AcosKeyAccess& access, int knownLength)
        : m_token(token), m_access(access), m_knownLength(knownLength)
    {
    }

    /// Throws CKR_USER_NOT_LOGGED_IN, CKR_DATA_LEN_RANGE, CKR_BUFFER_TOO_SMALL, CKR_DEVICE_ERROR and what the
    /// PIN replay throws.
    void sign(CK_BYTE* data, CK_ULONG dataLen, CK_BYTE* out, CK_ULONG* outLen) override;

private:
    AcosToken& m_token;
    AcosKeyAccess m_access;
    int m_knownLength;
};

/// Decryption with PSO DECIPHER; the card removes the padding. A null output is answered with 256.
class AcosMechanismDecrypt : public Mechanism {
public:
    AcosMechanismDecrypt(AcosToken& token, const AcosKeyAccess& access, CK_MECHANISM_TYPE type)
        : m_token(token), m_access(access), m_type(type)
    {
    }

    /// Throws as AcosMechanismSign::sign does.
    void decrypt(CK_BYTE* data, CK_ULONG dataLen, CK_BYTE* out, CK_ULONG* outLen) override;

protected:
    /// After the PIN replay: throws where the key is none to decrypt with.
    virtual void requireKey() const {}

private:
    AcosToken& m_token;
    AcosKeyAccess m_access;
    CK_MECHANISM_TYPE m_type;
};

} // namespace PKCS11
