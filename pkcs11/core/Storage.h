#pragma once

#include "pkcs11/core/Object.h"

namespace PKCS11 {

/// An object that can stand on a token: label, and the token, private and modifiable marks. Starts modifiable
/// and with every other flag of its class tree false.
class Storage : public Object {
public:
    Storage();

    virtual Blob getLabel() { return bytes(CKA_LABEL); }
    virtual void setLabel(const Blob& label) { setBytes(CKA_LABEL, label); }
    virtual CK_BBOOL getOnToken() { return m_onToken; }
    virtual void setOnToken(CK_BBOOL onToken) { m_onToken = onToken == CK_TRUE ? CK_TRUE : CK_FALSE; }
    virtual CK_BBOOL getPrivate() { return flag(CKA_PRIVATE); }
    virtual void setPrivate(CK_BBOOL value) { setFlag(CKA_PRIVATE, value); }
    virtual CK_BBOOL getModifiable() { return flag(CKA_MODIFIABLE); }
    virtual void setModifiable(CK_BBOOL value) { setFlag(CKA_MODIFIABLE, value); }

protected:
    const AttributeTable& attributeTable() const override { return kAttributes; }
    static const AttributeTable kAttributes;

private:
    CK_BBOOL m_onToken = CK_FALSE;
};

/// True for a Storage whose private mark is set.
bool isPrivate(Object& object);

} // namespace PKCS11
