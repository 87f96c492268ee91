/// The objects of an A-Trust card. Each keeps its token, which owns it, and its file identifier.
#pragma once

#include "pkcs11/drivers/common/CardObjects.h"

namespace PKCS11 {

class AcosTRUSTToken;

/// What the private and the public key objects share: names and exponent, and the modulus, which is read on
/// first use and empty when the key file cannot be read.
template <class Base>
class AcosTRUSTKey : public Base {
public:
    AcosTRUSTKey(AcosTRUSTToken& token, unsigned short fid);

    Blob getModulus() override;

protected:
    AcosTRUSTToken& m_token;
    unsigned short m_fid;
};

class AcosTRUSTPublicKey final : public AcosTRUSTKey<CardPublicKey> {
public:
    using AcosTRUSTKey::AcosTRUSTKey;

    std::unique_ptr<Mechanism> createEncryptMechanism(CK_MECHANISM* mechanism, MechanismInfo* info) override;
};

class AcosTRUSTPrivateKey final : public AcosTRUSTKey<CardPrivateKey> {
public:
    using AcosTRUSTKey::AcosTRUSTKey;

    std::unique_ptr<Mechanism> createSignMechanism(CK_MECHANISM* mechanism, MechanismInfo* info) override;
    std::unique_ptr<Mechanism> createDecryptMechanism(CK_MECHANISM* mechanism, MechanismInfo* info) override;
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
