/// The objects of an A-Trust card. Each keeps its token, which owns it, and its file identifier.
#pragma once

#include "pkcs11/drivers/common/CardObjects.h"

namespace PKCS11 {

class AcosTRUSTToken;

class AcosTRUSTPublicKey final : public CardPublicKey {
public:
    AcosTRUSTPublicKey(AcosTRUSTToken& token, unsigned short fid);

    /// Read on first use; empty when the key file cannot be read.
    Blob getModulus() override;
    std::unique_ptr<Mechanism> createEncryptMechanism(CK_MECHANISM* mechanism, MechanismInfo* info) override;

private:
    AcosTRUSTToken& m_token;
    unsigned short m_fid;
};

class AcosTRUSTPrivateKey final : public CardPrivateKey {
public:
    AcosTRUSTPrivateKey(AcosTRUSTToken& token, unsigned short fid);

    /// As the public key has it.
    Blob getModulus() override;
    std::unique_ptr<Mechanism> createSignMechanism(CK_MECHANISM* mechanism, MechanismInfo* info) override;
    std::unique_ptr<Mechanism> createDecryptMechanism(CK_MECHANISM* mechanism, MechanismInfo* info) override;

private:
    AcosTRUSTToken& m_token;
    unsigned short m_fid;
};

class AcosTRUSTCertificate final : public CardCertificate {
public:
    AcosTRUSTCertificate(AcosTRUSTToken& token, unsigned short fid);

private:
    /// The certificate without what follows it in the file; empty when the file holds none.
    CardValue readValue() override;

    AcosTRUSTToken& m_token;
    unsigned short m_fid;
};

class AcosTRUSTData final : public CardData {
public:
    /// An empty value is read on first use.
    AcosTRUSTData(AcosTRUSTToken& token, unsigned short fid, const Blob& value);

private:
    CardValue readValue() override;

    AcosTRUSTToken& m_token;
    unsigned short m_fid;
};

} // namespace PKCS11
