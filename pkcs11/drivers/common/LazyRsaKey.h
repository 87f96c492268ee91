#pragma once

#include "pkcs11/drivers/common/CardObjects.h"

namespace PKCS11 {

/// A key whose modulus and public exponent are read from the card once, when one of them is first asked for.
/// What a caller has set stays; keys of other types than RSA have neither. `Base` is CardPrivateKey or
/// CardPublicKey.
template <class Base>
class LazyRsaKey : public Base {
public:
    Blob getModulus() override { return hasComponents() ? Base::getModulus() : Blob(); }
    Blob getPublicExponent() override { return hasComponents() ? Base::getPublicExponent() : Blob(); }

protected:
    /// Reads both components; leaves empty what the card does not give. Throws where the card cannot be
    /// asked; then the next request asks again.
    virtual void readComponents(Blob& modulus, Blob& exponent) = 0;

private:
    bool hasComponents()
    {
        if (this->getKeyType() != CKK_RSA)
            return false;
        if (m_read)
            return true;
        Blob modulus;
        Blob exponent;
        readComponents(modulus, exponent);
        m_read = true;
        if (Base::getModulus().empty())
            Base::setModulus(modulus);
        if (Base::getPublicExponent().empty())
            Base::setPublicExponent(exponent);
        return true;
    }

    bool m_read = false;
};

} // namespace PKCS11
