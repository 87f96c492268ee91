#pragma once

#include "pkcs11/drivers/ias/PKCS15CommonKeyAttributes.h"
#include "pkcs11/drivers/ias/PKCS15CommonObjectAttributes.h"
#include "pkcs11/drivers/ias/PKCS15Path.h"

namespace PKCS11 {

/// An entry of a key directory (ISO/IEC 7816-15, PrivateKeyChoice); public keys have the same form.
class PKCS15PrivateKeyObject final : public PKCS15CommonObjectAttributes {
public:
    PKCS15PrivateKeyObject();

    const PKCS15CommonKeyAttributes& keyAttributes() const { return m_keyAttributes; }
    PKCS15CommonKeyAttributes& keyAttributes() { return m_keyAttributes; }
    /// The first credential identifier; only read.
    const Blob& keyIdentifierType() const { return m_credential.field(0); }
    const Blob& keyIdentifierValue() const { return m_credential.field(1); }
    const PKCS15Path& path() const { return m_typeAttributes.path(); }
    PKCS15Path& path() { return m_typeAttributes.path(); }
    /// Bits of an RSA modulus; other keys have none.
    Blob modulusLength() const;
    void setModulusLength(const Blob& bits) { m_typeAttributes.setField(0, bits); }
    Blob keyInfo() const;
    const Blob& operations() const { return m_typeAttributes.field(2); }

protected:
    void read(const BERCoder& node) override;
    void write(BERCoder& node) const override;

private:
    bool isRSA() const { return objectType() == 0x30; }
    void ImportCommonPrivateKeyAttributes(const BERCoder& element);
    void ImportKeyAttributes(const BERCoder& element);

    PKCS15CommonKeyAttributes m_keyAttributes;
    PKCS15Sequence m_credential;
    PKCS15PathSequence m_typeAttributes;
};

} // namespace PKCS11
