#pragma once

#include "pkcs11/drivers/cardos/CardOSKey.h"

namespace PKCS11 {

/// The components of the private part never leave the card: they stay empty unless a caller sets them.
class CardOSPrivateKey final : public CardOSKey<CardPrivateKey> {
public:
    /// Reads the attribute file. Throws as CardOSToken's constructor does.
    CardOSPrivateKey(CardOSToken& token, int index);

    std::unique_ptr<Mechanism> createSignMechanism(CK_MECHANISM* mechanism, MechanismInfo* info) override;
    std::unique_ptr<Mechanism> createDecryptMechanism(CK_MECHANISM* mechanism, MechanismInfo* info) override;

    Blob getPrime1() { return m_prime1; }
    void setPrime1(const Blob& value) { m_prime1 = value; }
    Blob getPrime2() { return m_prime2; }
    void setPrime2(const Blob& value) { m_prime2 = value; }
    Blob getPrivateExponent() { return m_privateExponent; }
    void setPrivateExponent(const Blob& value) { m_privateExponent = value; }

protected:
    const AttributeTable& attributeTable() const override { return kAttributes; }
    static const AttributeTable kAttributes;

private:
    Blob m_prime1;
    Blob m_prime2;
    Blob m_privateExponent;
};

} // namespace PKCS11
