#pragma once

#include "pkcs11/core/Storage.h"

namespace PKCS11 {

class Mechanism;
class MechanismInfo;

/// What private, public and secret keys have in common: type, ID, validity, and derivation.
class Key : public Storage {
public:
    virtual CK_KEY_TYPE getKeyType() = 0;
    virtual void setKeyType(CK_KEY_TYPE /*type*/) {}
    virtual Blob getID() { return bytes(CKA_ID); }
    virtual void setID(const Blob& id) { setBytes(CKA_ID, id); }
    virtual CK_BBOOL getLocal() { return flag(CKA_LOCAL); }
    virtual void setLocal(CK_BBOOL value) { setFlag(CKA_LOCAL, value); }
    virtual CK_BBOOL getDerive() { return flag(CKA_DERIVE); }
    virtual void setDerive(CK_BBOOL value) { setFlag(CKA_DERIVE, value); }
    /// 8 zero bytes while no date is stored.
    virtual CK_DATE getStartDate() { return date(CKA_START_DATE); }
    virtual void setStartDate(CK_DATE value) { setDate(CKA_START_DATE, value); }
    virtual CK_DATE getEndDate() { return date(CKA_END_DATE); }
    virtual void setEndDate(CK_DATE value) { setDate(CKA_END_DATE, value); }

    /// The factories of keys yield a new operation, or none where the key cannot do it.
    virtual std::unique_ptr<Mechanism> createDeriveMechanism(CK_MECHANISM* mechanism,
                                                             MechanismInfo* info) = 0;

protected:
    const AttributeTable& attributeTable() const override { return kAttributes; }
    static const AttributeTable kAttributes;

private:
    CK_DATE date(CK_ATTRIBUTE_TYPE type) const;
    void setDate(CK_ATTRIBUTE_TYPE type, const CK_DATE& value);
};

} // namespace PKCS11
