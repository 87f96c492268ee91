/// The objects of an IAS-ECC card. Each keeps its token, which owns it, and its PKCS#15 record, which the
/// token owns; label, ID and flags come from the record.
#pragma once

#include "pkcs11/drivers/common/LazyRsaKey.h"
#include "pkcs11/drivers/ias/PKCS15CertificateObject.h"
#include "pkcs11/drivers/ias/PKCS15DataObject.h"
#include "pkcs11/drivers/ias/PKCS15PrivateKeyObject.h"

namespace PKCS11 {

class IASToken;

class PKCS15Certificate final : public CardCertificate {
public:
    PKCS15Certificate(IASToken& token, const PKCS15CertificateObject& record);

private:
    /// The certificate without the padding that follows it in the file.
    CardValue readValue() override;

    IASToken& m_token;
    const PKCS15CertificateObject& m_record;
};

class PKCS15PublicKey final : public LazyRsaKey<CardPublicKey> {
public:
    PKCS15PublicKey(IASToken& token, const PKCS15PrivateKeyObject& record);

private:
    RsaComponents readComponents() override;

    IASToken& m_token;
    const PKCS15PrivateKeyObject& m_record;
};

class PKCS15PrivateKey final : public LazyRsaKey<CardPrivateKey> {
public:
    PKCS15PrivateKey(IASToken& token, const PKCS15PrivateKeyObject& record);

    IASToken& token() const { return m_token; }
    /// What names the key in the commands to the card. Throws CKR_DEVICE_ERROR (0x30) with the where-text for
    /// a record that does not tell: no other key stands for it.
    unsigned char keyReference(const char* where) const;
    /// Bytes of a signature: the length of the modulus, or what the record tells where the card gives no
    /// modulus.
    int signatureLength();
    /// The same as far as it is known without asking the card; 0 otherwise.
    int knownSignatureLength();

    std::unique_ptr<Mechanism> createSignMechanism(CK_MECHANISM* mechanism, MechanismInfo* info) override;
    std::unique_ptr<Mechanism> createDecryptMechanism(CK_MECHANISM* mechanism, MechanismInfo* info) override;

private:
    RsaComponents readComponents() override;
    int lengthOf(const Blob& modulus) const;

    IASToken& m_token;
    const PKCS15PrivateKeyObject& m_record;
};

class PKCS15Data final : public CardData {
public:
    PKCS15Data(IASToken& token, const PKCS15DataObject& record);

private:
    CardValue readValue() override;

    IASToken& m_token;
    const PKCS15DataObject& m_record;
};

} // namespace PKCS11
