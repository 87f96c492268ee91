/// Object classes that the drivers derive from: keys whose private part stays on the card, certificates and
/// data whose values are read on first use.
#pragma once

#include "pkcs11/core/Data.h"
#include "pkcs11/core/Mechanism.h"
#include "pkcs11/core/PrivateKey.h"
#include "pkcs11/core/PublicKey.h"
#include "pkcs11/core/X509PublicKeyCertificate.h"

namespace PKCS11 {

/// The value of an object as it was read from the card. One that the card broke off is answered, but read
/// again by the next request.
struct CardValue {
    Blob bytes;
    bool isWhole = true;
};

/// What both keys of a pair on a card hold: type, modulus and public exponent, as the card or its certificate
/// gives them. `Base` is PrivateKey or PublicKey.
template <class Base>
class CardKey : public Base {
public:
    CK_KEY_TYPE getKeyType() override { return m_keyType; }
    /// For the driver; a caller cannot change the type.
    void initKeyType(CK_KEY_TYPE type) { m_keyType = type; }

    virtual Blob getModulus() { return m_modulus; }
    virtual void setModulus(const Blob& value) { m_modulus = value; }
    virtual Blob getPublicExponent() { return m_publicExponent; }
    virtual void setPublicExponent(const Blob& value) { m_publicExponent = value; }

    /// None, as for every card here.
    std::unique_ptr<Mechanism> createDeriveMechanism(CK_MECHANISM* /*mechanism*/,
                                                     MechanismInfo* /*info*/) override
    {
        return nullptr;
    }

private:
    CK_KEY_TYPE m_keyType = CKK_RSA;
    Blob m_modulus;
    Blob m_publicExponent;
};

/// A private key on a card. Signs and decrypts; a token object.
class CardPrivateKey : public CardKey<PrivateKey> {
public:
    CardPrivateKey();

    /// None, as for every card here.
    std::unique_ptr<Mechanism> createSignRecoveryMechanism(CK_MECHANISM* mechanism,
                                                           MechanismInfo* info) override;

protected:
    const AttributeTable& attributeTable() const override { return kAttributes; }
    static const AttributeTable kAttributes;
};

/// A public key on a card. Encrypts and verifies; a token object. Where the card does neither, the factories
/// of this class give none.
class CardPublicKey : public CardKey<PublicKey> {
public:
    CardPublicKey();

    /// Length of the modulus in bits: 8 for each byte.
    virtual CK_ULONG getModulusBits() { return 8UL * static_cast<CK_ULONG>(getModulus().size()); }

    std::unique_ptr<Mechanism> createVerifyMechanism(CK_MECHANISM* mechanism, MechanismInfo* info) override;
    std::unique_ptr<Mechanism> createVerifyRecoveryMechanism(CK_MECHANISM* mechanism,
                                                             MechanismInfo* info) override;
    std::unique_ptr<Mechanism> createEncryptMechanism(CK_MECHANISM* mechanism, MechanismInfo* info) override;

protected:
    const AttributeTable& attributeTable() const override { return kAttributes; }
    static const AttributeTable kAttributes;
};

/// A certificate on a card; a token object. The value is read on first use, and subject, issuer and serial
/// number are parsed from it on first use; a value that is no certificate leaves the three empty.
class CardCertificate : public X509PublicKeyCertificate {
public:
    CardCertificate();

    Blob getValue() override;
    Blob getSerialNumber() override;
    Blob getIssuer() override;
    Blob getSubject() override;

protected:
    /// Reads the value from the card; called while it is empty. Throws where the card cannot be asked.
    virtual CardValue readValue() { return {}; }

private:
    /// Parses the three attributes once.
    void loadAttr();

    bool m_parsed = false;
};

/// A data object on a card; a token object. The value is read on first use.
class CardData : public Data {
public:
    CardData();

    Blob getValue() override;

protected:
    /// Reads the value from the card; called while it is empty. Throws where the card cannot be asked.
    virtual CardValue readValue() { return {}; }
};

} // namespace PKCS11
