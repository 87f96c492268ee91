#pragma once

#include "pkcs11/drivers/ias/PKCS15CommonKeyAttributes.h"
#include "pkcs11/drivers/ias/PKCS15CommonObjectAttributes.h"
#include "pkcs11/drivers/ias/PKCS15Path.h"

namespace PKCS11 {

/// An entry of a key directory (ISO/IEC 7816-15, PrivateKeyChoice); public keys have the same form.
class PKCS15PrivateKeyObject final : public PKCS15CommonObjectAttributes {
public:
    PKCS15PrivateKeyObject();

    void read(const BERCoder& node) override;
    BERCoder node() const override;

    PKCS15CommonKeyAttributes key;
    /// The first credential identifier.
    Blob keyIdentifierType;
    Blob keyIdentifierValue;
    PKCS15Path path;
    /// Bits of an RSA modulus; other keys have none.
    Blob modulusLength;
    Blob keyInfo;
    Blob operations;

private:
    void ImportCommonPrivateKeyAttributes(const BERCoder& element);
    void ImportKeyAttributes(const BERCoder& element);
};

} // namespace PKCS11
