/// Operations with the keys of a PIV card. The card computes with the bare key; PKCS#1 padding is built and
/// removed here. Update and final steps are not offered.
#pragma once

#include "pkcs11/core/Mechanism.h"

namespace PKCS11 {

class PIVJavaPrivateKey;
class PIVJavaToken;

/// What is reported for a decrypted text or an encrypted one, whatever the key.
constexpr int kPIVReportedLength = 256;

class PIVJavaMechanismSign final : public Mechanism {
public:
    explicit PIVJavaMechanismSign(PIVJavaPrivateKey& key) : m_key(key) {}

    /// An error of the card can end as an empty signature, without an exception. Throws CKR_DATA_LEN_RANGE
    /// (0x21) for data that leave no room for the padding and yet do not fill the block.
    void sign(CK_BYTE* data, CK_ULONG dataLen, CK_BYTE* out, CK_ULONG* outLen) override;

private:
    PIVJavaPrivateKey& m_key;
};

class PIVJavaMechanismDecrypt final : public Mechanism {
public:
    PIVJavaMechanismDecrypt(PIVJavaPrivateKey& key, CK_MECHANISM_TYPE type,
                            int reportedLength = kPIVReportedLength)
        : m_key(key), m_type(type), m_reportedLength(reportedLength)
    {
    }

    /// An error of the card can end as an empty text, without an exception.
    void decrypt(CK_BYTE* data, CK_ULONG dataLen, CK_BYTE* out, CK_ULONG* outLen) override;

private:
    PIVJavaPrivateKey& m_key;
    CK_MECHANISM_TYPE m_type;
    int m_reportedLength;
};

/// Computes nothing.
class PIVJavaMechanismEncrypt final : public Mechanism {
public:
    /// Verifies the user PIN again; throws CKR_USER_NOT_LOGGED_IN (0x101) when there is none.
    explicit PIVJavaMechanismEncrypt(PIVJavaToken& token);

    void encrypt(CK_BYTE* data, CK_ULONG dataLen, CK_BYTE* out, CK_ULONG* outLen) override;

private:
    PIVJavaToken& m_token;
};

/// Checks nothing: every step succeeds.
class PIVJavaMechanismVerify final : public MechanismVerify {
public:
    void verify(CK_BYTE* data, CK_ULONG dataLen, CK_BYTE* signature, CK_ULONG signatureLen) override;
    void verifyUpdate(CK_BYTE* data, CK_ULONG dataLen) override;
    void verifyFinal(CK_BYTE* signature, CK_ULONG signatureLen) override;
    void verifyRecover(CK_BYTE* out, CK_ULONG* outLen, CK_BYTE* signature, CK_ULONG signatureLen) override;
};

} // namespace PKCS11
