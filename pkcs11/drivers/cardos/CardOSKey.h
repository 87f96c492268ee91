#pragma once

#include "pkcs11/drivers/cardos/CardOSToken.h"
#include "pkcs11/drivers/common/LazyRsaKey.h"
#include "pkcs11/token/ByteOrder.h"

namespace PKCS11 {

/// CKK_EC where the attributes say so, CKK_RSA otherwise. Records hold the type in one byte, or in four of
/// either order.
CK_KEY_TYPE keyTypeOf(const PKCS11Attrs& attributes);

/// What the private and the public key objects of a CardOS card share: label, ID and type from the attribute
/// file, and components that are read from the key's DF on first use.
template <class Base>
class CardOSKey : public LazyRsaKey<Base> {
public:
    CardOSToken& token() const { return m_token; }
    /// The object's place in the directory.
    int index() const { return m_index; }
    /// Bytes of the key: those of the modulus, without a sign byte that the card may show with it.
    int keyLength() { return stripSignByte(this->getModulus()).size(); }

protected:
    template <class Info>
    CardOSKey(CardOSToken& token, int index, const Info& info) : m_token(token), m_index(index)
    {
        Base::setLabel(info.getLabel());
        Base::setID(info.getID());
        Base::initKeyType(keyTypeOf(info));
    }

private:
    RsaComponents readComponents() override
    {
        RsaComponents key;
        key.isWhole = m_token.ReadPublicKey(m_index, key.modulus, key.exponent);
        return key;
    }

    CardOSToken& m_token;
    int m_index;
};

} // namespace PKCS11
