#pragma once

#include "pkcs11/drivers/common/CardObjects.h"

namespace PKCS11 {

/// The RSA public key as it was read from the card; a part that the card does not have is empty. One that the
/// card refused to read is read again by the next request.
struct RsaComponents {
    Blob modulus;
    Blob exponent;
    bool isWhole = true;
};

/// A key whose modulus and public exponent are read from the card once, when one of them is first asked for.
/// What a caller has set stays; keys of other types than RSA have neither. `Base` is CardPrivateKey or
/// CardPublicKey.
template <class Base>
class LazyRsaKey : public Base {
public:
    Blob getModulus() override { return hasComponents() ? Base::getModulus() : Blob(); }
    Blob getPublicExponent() override { return hasComponents() ? Base::getPublicExponent() : Blob(); }
    /// The modulus as far as it was read or set.
    Blob knownModulus() { return Base::getModulus(); }

protected:
    /// Reads both components. Throws where the card cannot be asked; then the next request asks again.
    virtual RsaComponents readComponents() = 0;

private:
    bool hasComponents()
    {
        if (this->getKeyType() != CKK_RSA)
            return false;
        if (m_read)
            return true;
        const RsaComponents components = readComponents();
        if (Base::getModulus().empty())
            Base::setModulus(components.modulus);
        if (Base::getPublicExponent().empty())
            Base::setPublicExponent(components.exponent);
        m_read = components.isWhole;
        return true;
    }

    bool m_read = false;
};

} // namespace PKCS11
