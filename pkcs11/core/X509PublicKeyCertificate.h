#pragma once

#include "pkcs11/core/Certificate.h"

namespace PKCS11 {

/// An X.509 certificate. Subject and issuer are DER names, the serial number is the content of its INTEGER,
/// the value is the DER certificate.
class X509PublicKeyCertificate : public Certificate {
public:
    CK_CERTIFICATE_TYPE getCertificateType() override { return CKC_X_509; }
    /// Size of the value in bytes.
    CK_ULONG getObjectSize() override { return static_cast<CK_ULONG>(getValue().size()); }

    virtual Blob getSerialNumber() { return m_serialNumber; }
    virtual void setSerialNumber(const Blob& value) { m_serialNumber = value; }
    virtual Blob getIssuer() { return m_issuer; }
    virtual void setIssuer(const Blob& value) { m_issuer = value; }
    virtual Blob getSubject() { return m_subject; }
    virtual void setSubject(const Blob& value) { m_subject = value; }
    virtual Blob getValue() { return m_value; }
    virtual void setValue(const Blob& value) { m_value = value; }
    virtual Blob getID() { return bytes(CKA_ID); }
    virtual void setID(const Blob& value) { setBytes(CKA_ID, value); }

protected:
    const AttributeTable& attributeTable() const override { return kAttributes; }
    static const AttributeTable kAttributes;

private:
    Blob m_serialNumber;
    Blob m_issuer;
    Blob m_subject;
    Blob m_value;
};

} // namespace PKCS11
