#pragma once

#include "pkcs11/drivers/ias/PKCS15CommonObjectAttributes.h"
#include "pkcs11/drivers/ias/PKCS15Path.h"

namespace PKCS11 {

/// An entry of a certificate directory (ISO/IEC 7816-15, CertificateChoice).
class PKCS15CertificateObject final : public PKCS15CommonObjectAttributes {
public:
    PKCS15CertificateObject();

    const Blob& iD() const { return m_classAttributes.field(0); }
    void setID(const Blob& iD) { m_classAttributes.setField(0, iD); }
    /// BOOLEAN: the certificate of an authority.
    const Blob& authority() const { return m_classAttributes.field(1); }
    void setAuthority(const Blob& authority) { m_classAttributes.setField(1, authority); }
    /// Where the certificate is.
    const PKCS15Path& path() const { return m_typeAttributes.path(); }
    PKCS15Path& path() { return m_typeAttributes.path(); }
    /// Of X.509 and X.509 attribute certificates.
    Blob serialNumber() const;
    void setSerialNumber(const Blob& serialNumber) { m_typeAttributes.setField(0, serialNumber); }

protected:
    void read(const BERCoder& node) override;
    void write(BERCoder& node) const override;

private:
    PKCS15Sequence m_classAttributes;
    PKCS15PathSequence m_typeAttributes;
};

} // namespace PKCS11
