#pragma once

#include "pkcs11/core/Key.h"

namespace PKCS11 {

/// A private key; private from the start. Holds no secret parts.
class PrivateKey : public Key {
public:
    PrivateKey();

    CK_OBJECT_CLASS getClass() override { return CKO_PRIVATE_KEY; }

    virtual Blob getSubject() { return bytes(CKA_SUBJECT); }
    virtual void setSubject(const Blob& subject) { setBytes(CKA_SUBJECT, subject); }
    virtual CK_BBOOL getSensitive() { return flag(CKA_SENSITIVE); }
    virtual void setSensitive(CK_BBOOL value) { setFlag(CKA_SENSITIVE, value); }
    virtual CK_BBOOL getDecrypt() { return flag(CKA_DECRYPT); }
    virtual void setDecrypt(CK_BBOOL value) { setFlag(CKA_DECRYPT, value); }
    virtual CK_BBOOL getSign() { return flag(CKA_SIGN); }
    virtual void setSign(CK_BBOOL value) { setFlag(CKA_SIGN, value); }
    virtual CK_BBOOL getSignRecovery() { return flag(CKA_SIGN_RECOVER); }
    virtual void setSignRecovery(CK_BBOOL value) { setFlag(CKA_SIGN_RECOVER, value); }
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
    virtual std::unique_ptr<Mechanism> createSignRecoveryMechanism(CK_MECHANISM* mechanism,
                                                                   MechanismInfo* info) = 0;

protected:
    const AttributeTable& attributeTable() const override { return kAttributes; }
    static const AttributeTable kAttributes;
};

} // namespace PKCS11
