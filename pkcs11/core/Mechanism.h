#pragma once

#include "pkcs11/Cryptoki.h"
#include "pkcs11/core/Operation.h"

namespace PKCS11 {

class Key;
class PrivateKey;
class PublicKey;
class SecretKey;

/// A running operation. Every step that a concrete class does not provide throws CKR_MECHANISM_INVALID
/// (0x70), which the session takes as "the wrong step" and lets most operations survive.
///
/// Output lengths are in/out: the room in the caller's buffer, then what was written. A null output asks for
/// the length. Too little room throws CKR_BUFFER_TOO_SMALL (0x150) with the needed length in place.
class Mechanism : public Operation {
public:
    virtual void encrypt(CK_BYTE* data, CK_ULONG dataLen, CK_BYTE* out, CK_ULONG* outLen);
    virtual void encryptUpdate(CK_BYTE* data, CK_ULONG dataLen, CK_BYTE* out, CK_ULONG* outLen);
    virtual void encryptFinal(CK_BYTE* out, CK_ULONG* outLen);
    virtual void decrypt(CK_BYTE* data, CK_ULONG dataLen, CK_BYTE* out, CK_ULONG* outLen);
    virtual void decryptUpdate(CK_BYTE* data, CK_ULONG dataLen, CK_BYTE* out, CK_ULONG* outLen);
    virtual void decryptFinal(CK_BYTE* out, CK_ULONG* outLen);
    virtual void generateKey(CK_MECHANISM* mechanism, CK_ATTRIBUTE* attributes, CK_ULONG count,
                             CK_ULONG* key);
    virtual void generateKeyPair(CK_MECHANISM* mechanism, CK_ATTRIBUTE* publicAttributes,
                                 CK_ULONG publicCount, CK_ATTRIBUTE* privateAttributes, CK_ULONG privateCount,
                                 CK_ULONG* publicKey, CK_ULONG* privateKey);
    /// Yields a new key that the caller owns.
    virtual void deriveKey(CK_MECHANISM* mechanism, CK_ATTRIBUTE* attributes, CK_ULONG count, Key** key);
    virtual void digestInit();
    virtual void digest(CK_BYTE* data, CK_ULONG dataLen, CK_BYTE* out, CK_ULONG* outLen);
    virtual void digestUpdate(CK_BYTE* data, CK_ULONG dataLen);
    virtual void digestKey(CK_ULONG key);
    virtual void digestFinal(CK_BYTE* out, CK_ULONG* outLen);
    virtual void sign(CK_BYTE* data, CK_ULONG dataLen, CK_BYTE* out, CK_ULONG* outLen);
    virtual void signUpdate(CK_BYTE* data, CK_ULONG dataLen);
    virtual void signFinal(CK_BYTE* out, CK_ULONG* outLen);
    virtual void signRecover(CK_BYTE* data, CK_ULONG dataLen, CK_BYTE* out, CK_ULONG* outLen);
    virtual void verify(CK_BYTE* data, CK_ULONG dataLen, CK_BYTE* signature, CK_ULONG signatureLen);
    virtual void verifyUpdate(CK_BYTE* data, CK_ULONG dataLen);
    virtual void verifyFinal(CK_BYTE* signature, CK_ULONG signatureLen);
    virtual void verifyRecover(CK_BYTE* out, CK_ULONG* outLen, CK_BYTE* signature, CK_ULONG signatureLen);
    virtual void seedRandom(CK_BYTE* seed, CK_ULONG length);
    virtual void generateRandom(CK_BYTE* random, CK_ULONG length);
};

/// A driver that provides update and final gets the single-part call from these four.
class MechanismSign : public Mechanism {
public:
    void sign(CK_BYTE* data, CK_ULONG dataLen, CK_BYTE* out, CK_ULONG* outLen) override;
    void signUpdate(CK_BYTE* data, CK_ULONG dataLen) override = 0;
    void signFinal(CK_BYTE* out, CK_ULONG* outLen) override = 0;
};

class MechanismVerify : public Mechanism {
public:
    void verify(CK_BYTE* data, CK_ULONG dataLen, CK_BYTE* signature, CK_ULONG signatureLen) override;
    void verifyUpdate(CK_BYTE* data, CK_ULONG dataLen) override = 0;
    void verifyFinal(CK_BYTE* signature, CK_ULONG signatureLen) override = 0;
    void verifyRecover(CK_BYTE* out, CK_ULONG* outLen, CK_BYTE* signature,
                       CK_ULONG signatureLen) override = 0;
};

class MechanismEncrypt : public Mechanism {
public:
    void encrypt(CK_BYTE* data, CK_ULONG dataLen, CK_BYTE* out, CK_ULONG* outLen) override;
    /// Called with null outputs by encrypt(): the input is only collected.
    void encryptUpdate(CK_BYTE* data, CK_ULONG dataLen, CK_BYTE* out, CK_ULONG* outLen) override = 0;
    void encryptFinal(CK_BYTE* out, CK_ULONG* outLen) override = 0;
};

class MechanismDecrypt : public Mechanism {
public:
    void decrypt(CK_BYTE* data, CK_ULONG dataLen, CK_BYTE* out, CK_ULONG* outLen) override;
    /// Called with null outputs by decrypt(): the input is only collected.
    void decryptUpdate(CK_BYTE* data, CK_ULONG dataLen, CK_BYTE* out, CK_ULONG* outLen) override = 0;
    void decryptFinal(CK_BYTE* out, CK_ULONG* outLen) override = 0;
};

/// Key generation on the card. The defaults throw CKR_VENDOR_DEFINED (0x80000000).
class MechanismKeygen : public Mechanism {
public:
    explicit MechanismKeygen(CK_MECHANISM_TYPE type) : m_type(type) {}

    using Mechanism::generateKey;
    using Mechanism::generateKeyPair;
    /// Yields two new keys that the caller owns.
    virtual void generateKeyPair(CK_MECHANISM* mechanism, CK_ATTRIBUTE* publicAttributes,
                                 CK_ULONG publicCount, CK_ATTRIBUTE* privateAttributes, CK_ULONG privateCount,
                                 PublicKey** publicKey, PrivateKey** privateKey);
    /// Yields a new key that the caller owns.
    virtual void generateKey(CK_MECHANISM* mechanism, CK_ATTRIBUTE* attributes, CK_ULONG count,
                             SecretKey** key);

    CK_MECHANISM_TYPE type() const { return m_type; }

private:
    CK_MECHANISM_TYPE m_type;
};

} // namespace PKCS11
