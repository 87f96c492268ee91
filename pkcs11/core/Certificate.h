#pragma once

#include "pkcs11/core/Storage.h"

namespace PKCS11 {

/// A certificate object (CKO_CERTIFICATE) of any type.
class Certificate : public Storage {
public:
    CK_OBJECT_CLASS getClass() override { return CKO_CERTIFICATE; }
    virtual CK_CERTIFICATE_TYPE getCertificateType() = 0;
    virtual CK_BBOOL getTrusted() { return flag(CKA_TRUSTED); }
    virtual void setTrusted(CK_BBOOL value) { setFlag(CKA_TRUSTED, value); }

protected:
    const AttributeTable& attributeTable() const override { return kAttributes; }
    static const AttributeTable kAttributes;
};

} // namespace PKCS11
