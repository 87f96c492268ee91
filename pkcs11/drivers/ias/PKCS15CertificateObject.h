#pragma once

#include "pkcs11/drivers/ias/PKCS15CommonObjectAttributes.h"
#include "pkcs11/drivers/ias/PKCS15Path.h"

namespace PKCS11 {

/// An entry of a certificate directory (ISO/IEC 7816-15, CertificateChoice).
class PKCS15CertificateObject final : public PKCS15CommonObjectAttributes {
public:
    PKCS15CertificateObject();

    void read(const BERCoder& node) override;
    BERCoder node() const override;

    Blob iD;
    /// BOOLEAN: the certificate of an authority.
    Blob authority;
    /// Where the certificate is.
    PKCS15Path path;
    /// Of X.509 and X.509 attribute certificates.
    Blob serialNumber;
};

} // namespace PKCS11
