#pragma once

#include "pkcs11/core/Storage.h"

namespace PKCS11 {

/// A data object (CKO_DATA): bytes that an application knows the meaning of.
class Data : public Storage {
public:
    CK_OBJECT_CLASS getClass() override { return CKO_DATA; }
    /// Size of the value in bytes.
    CK_ULONG getObjectSize() override { return static_cast<CK_ULONG>(getValue().size()); }

    virtual Blob getApplication() { return bytes(CKA_APPLICATION); }
    virtual void setApplication(const Blob& value) { setBytes(CKA_APPLICATION, value); }
    virtual Blob getObjectIdentifier() { return bytes(CKA_OBJECT_ID); }
    virtual void setObjectIdentifier(const Blob& value) { setBytes(CKA_OBJECT_ID, value); }
    virtual Blob getValue() { return m_value; }
    virtual void setValue(const Blob& value) { m_value = value; }

protected:
    const AttributeTable& attributeTable() const override { return kAttributes; }
    static const AttributeTable kAttributes;

private:
    Blob m_value;
};

} // namespace PKCS11
