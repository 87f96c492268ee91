#pragma once

#include "pkcs11/core/Key.h"

namespace PKCS11 {

/// A public key object (CKO_PUBLIC_KEY), which makes the operations that it takes part in.
class PublicKey : public Key {
public:
    CK_OBJECT_CLASS getClass() override { return CKO_PUBLIC_KEY; }

    virtual Blob getSubject() { return bytes(CKA_SUBJECT); }
    virtual void setSubject(const Blob& subject) { setBytes(CKA_SUBJECT, subject); }
    virtual CK_BBOOL getTrusted() { return flag(CKA_TRUSTED); }
    virtual void setTrusted(CK_BBOOL value) { setFlag(CKA_TRUSTED, value); }
    virtual CK_BBOOL getEncrypt() { return flag(CKA_ENCRYPT); }
    virtual void setEncrypt(CK_BBOOL value) { setFlag(CKA_ENCRYPT, value); }
    virtual CK_BBOOL getVerify() { return flag(CKA_VERIFY); }
    virtual void setVerify(CK_BBOOL value) { setFlag(CKA_VERIFY, value); }
    virtual CK_BBOOL getVerifyRecovery() { return flag(CKA_VERIFY_RECOVER); }
    virtual void setVerifyRecovery(CK_BBOOL value) { setFlag(CKA_VERIFY_RECOVER, value); }
    virtual CK_BBOOL getWrap() { return flag(CKA_WRAP); }
    virtual void setWrap(CK_BBOOL value) { setFlag(CKA_WRAP, value); }

    virtual std::unique_ptr<Mechanism> createVerifyMechanism(CK_MECHANISM* mechanism,
                                                             MechanismInfo* info) = 0;
    virtual std::unique_ptr<Mechanism> createVerifyRecoveryMechanism(CK_MECHANISM* mechanism,
                                                                     MechanismInfo* info) = 0;
    virtual std::unique_ptr<Mechanism> createEncryptMechanism(CK_MECHANISM* mechanism,
                                                              MechanismInfo* info) = 0;

protected:
    const AttributeTable& attributeTable() const override { return kAttributes; }
    static const AttributeTable kAttributes;
};

} // namespace PKCS11
