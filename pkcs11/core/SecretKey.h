#pragma once

#include "pkcs11/core/Key.h"

namespace PKCS11 {

/// A secret key held by the library; private from the start, CKK_DES until told otherwise. No driver here has
/// any.
class SecretKey : public Key {
public:
    SecretKey();

    CK_OBJECT_CLASS getClass() override { return CKO_SECRET_KEY; }
    CK_KEY_TYPE getKeyType() override { return m_keyType; }
    void setKeyType(CK_KEY_TYPE type) override { m_keyType = type; }
    CK_ULONG getObjectSize() override { return getValueLen(); }

    virtual Blob getValue() { return m_value; }
    virtual void setValue(const Blob& value) { m_value = value; }
    virtual CK_ULONG getValueLen() { return m_valueLen; }
    virtual void setValueLen(CK_ULONG length) { m_valueLen = length; }
    virtual CK_BBOOL getSensitive() { return flag(CKA_SENSITIVE); }
    virtual void setSensitive(CK_BBOOL value) { setFlag(CKA_SENSITIVE, value); }
    virtual CK_BBOOL getEncrypt() { return flag(CKA_ENCRYPT); }
    virtual void setEncrypt(CK_BBOOL value) { setFlag(CKA_ENCRYPT, value); }
    virtual CK_BBOOL getDecrypt() { return flag(CKA_DECRYPT); }
    virtual void setDecrypt(CK_BBOOL value) { setFlag(CKA_DECRYPT, value); }
    virtual CK_BBOOL getSign() { return flag(CKA_SIGN); }
    virtual void setSign(CK_BBOOL value) { setFlag(CKA_SIGN, value); }
    virtual CK_BBOOL getVerify() { return flag(CKA_VERIFY); }
    virtual void setVerify(CK_BBOOL value) { setFlag(CKA_VERIFY, value); }
    virtual CK_BBOOL getWrap() { return flag(CKA_WRAP); }
    virtual void setWrap(CK_BBOOL value) { setFlag(CKA_WRAP, value); }
    virtual CK_BBOOL getUnwrap() { return flag(CKA_UNWRAP); }
    virtual void setUnwrap(CK_BBOOL value) { setFlag(CKA_UNWRAP, value); }
    virtual CK_BBOOL getExtractable() { return flag(CKA_EXTRACTABLE); }
    virtual void setExtractable(CK_BBOOL value) { setFlag(CKA_EXTRACTABLE, value); }
    virtual CK_BBOOL getAlwaysSensitive() { return flag(CKA_ALWAYS_SENSITIVE); }
    virtual void setAlwaysSensitive(CK_BBOOL value) { setFlag(CKA_ALWAYS_SENSITIVE, value); }
    virtual CK_BBOOL getNeverExtractable() { return flag(CKA_NEVER_EXTRACTABLE); }
    virtual void setNeverExtractable(CK_BBOOL value) { setFlag(CKA_NEVER_EXTRACTABLE, value); }

    virtual std::unique_ptr<Mechanism> createSignMechanism(CK_MECHANISM* mechanism, MechanismInfo* info) = 0;
    virtual std::unique_ptr<Mechanism> createDecryptMechanism(CK_MECHANISM* mechanism,
                                                              MechanismInfo* info) = 0;
    virtual std::unique_ptr<Mechanism> createVerifyMechanism(CK_MECHANISM* mechanism,
                                                             MechanismInfo* info) = 0;
    virtual std::unique_ptr<Mechanism> createEncryptMechanism(CK_MECHANISM* mechanism,
                                                              MechanismInfo* info) = 0;

protected:
    const AttributeTable& attributeTable() const override { return kAttributes; }
    static const AttributeTable kAttributes;

private:
    CK_KEY_TYPE m_keyType = CKK_DES;
    Blob m_value;
    CK_ULONG m_valueLen = 0;
};

} // namespace PKCS11
