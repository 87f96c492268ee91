#pragma once

#include "pkcs11/drivers/ias/PKCS15Record.h"

namespace PKCS11 {

/// The base of all object records: the attributes that every object has, which stand in the first element of
/// its record (ISO/IEC 7816-15, CommonObjectAttributes), and the steps that the records of all classes share.
class PKCS15CommonObjectAttributes : public PKCS15Sequence {
public:
    PKCS15CommonObjectAttributes();

    /// UTF-8.
    const Blob& label() const { return field(0); }
    void setLabel(const Blob& label) { setField(0, label); }
    /// Bit string with its unused-bits byte.
    const Blob& flags() const { return field(1); }
    void setFlags(const Blob& flags) { setField(1, flags); }
    /// Identifier of the authentication object that protects this one.
    const Blob& objectAuthId() const { return field(2); }
    void setObjectAuthId(const Blob& authId) { setField(2, authId); }
    const Blob& userConsent() const { return field(3); }
    void setUserConsent(const Blob& userConsent) { setField(3, userConsent); }

    /// The first tag byte of the record, which tells the kind of object.
    int objectType() const { return m_objectType; }
    void setObjectType(int type) { m_objectType = type; }
    bool isPrivate() const { return hasFlag(0x80); }
    bool isModifiable() const { return hasFlag(0x40); }

protected:
    /// For the records of the object classes, which read and write all of their record themselves.
    explicit PKCS15CommonObjectAttributes(const char* undecodable);

    /// The record's type and its first element. Throws the text for a type that is not in the list.
    void readCommon(const BERCoder& record, std::initializer_list<int> types, const char* unknownType);
    void writeCommon(BERCoder& record) const;

private:
    bool hasFlag(unsigned char flag) const { return flags().size() >= 2 && (flags().at(1) & flag) != 0; }

    int m_objectType = 0x30;
};

} // namespace PKCS11
