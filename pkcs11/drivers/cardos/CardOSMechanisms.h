/// Operations with the keys of a CardOS card. The card computes with the bare key; PKCS#1 padding is built
/// and removed here. Only the single-part calls work: update steps do nothing, final steps throw
/// CKR_FUNCTION_NOT_SUPPORTED (0x54).
#pragma once

#include "pkcs11/core/Mechanism.h"
#include "pkcs11/drivers/cardos/CardOSOperation.h"

namespace PKCS11 {

class CardOSPrivateKey;

class CardOSMechanismSign final : public MechanismSign, private CardOSPrivateKeyOperation {
public:
    CardOSMechanismSign(CardOSPrivateKey& key, CK_MECHANISM_TYPE type);

    /// Ends with length 0 and no error where a card before V5.0 does not restore its security environment.
    /// Throws CKR_DATA_LEN_RANGE (0x21) for CKM_RSA_X_509 data that are longer than the modulus,
    /// CKR_MECHANISM_INVALID (0x70) for other mechanisms than the two.
    void sign(CK_BYTE* data, CK_ULONG dataLen, CK_BYTE* out, CK_ULONG* outLen) override;
    void signUpdate(CK_BYTE* data, CK_ULONG dataLen) override;
    void signFinal(CK_BYTE* out, CK_ULONG* outLen) override;

private:
    Blob block(const Blob& data, int size) const;

    CardOSPrivateKey& m_key;
};

class CardOSMechanismDecrypt final : public MechanismDecrypt, private CardOSPrivateKeyOperation {
public:
    CardOSMechanismDecrypt(CardOSPrivateKey& key, CK_MECHANISM_TYPE type);

    void decrypt(CK_BYTE* data, CK_ULONG dataLen, CK_BYTE* out, CK_ULONG* outLen) override;
    void decryptUpdate(CK_BYTE* data, CK_ULONG dataLen, CK_BYTE* out, CK_ULONG* outLen) override;
    void decryptFinal(CK_BYTE* out, CK_ULONG* outLen) override;
};

// This and the next inherit openly for CreateCCMS, which belongs to the interface.
class CardOSMechanismEncrypt final : public MechanismEncrypt, public CardOSPublicKeyOperation {
public:
    CardOSMechanismEncrypt(CardOSPublicKey& key, CK_MECHANISM_TYPE type);

    /// Ends with length 0 and no error for a CKM_RSA_PKCS key whose modulus cannot be read.
    void encrypt(CK_BYTE* data, CK_ULONG dataLen, CK_BYTE* out, CK_ULONG* outLen) override;
    void encryptUpdate(CK_BYTE* data, CK_ULONG dataLen, CK_BYTE* out, CK_ULONG* outLen) override;
    void encryptFinal(CK_BYTE* out, CK_ULONG* outLen) override;
};

class CardOSMechanismVerify final : public MechanismVerify, public CardOSPublicKeyOperation {
public:
    CardOSMechanismVerify(CardOSPublicKey& key, CK_MECHANISM_TYPE type);

    /// Throws CKR_SIGNATURE_INVALID (0xC0), CKR_MECHANISM_INVALID (0x70) for other mechanisms than the two.
    void verify(CK_BYTE* data, CK_ULONG dataLen, CK_BYTE* signature, CK_ULONG signatureLen) override;
    void verifyUpdate(CK_BYTE* data, CK_ULONG dataLen) override;
    void verifyFinal(CK_BYTE* signature, CK_ULONG signatureLen) override;
    void verifyRecover(CK_BYTE* out, CK_ULONG* outLen, CK_BYTE* signature, CK_ULONG signatureLen) override;

private:
    /// What the block that the card returned says was signed.
    Blob signedData(const Blob& block) const;
};

} // namespace PKCS11
