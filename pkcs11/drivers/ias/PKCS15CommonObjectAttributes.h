#pragma once

#include "pkcs11/drivers/ias/PKCS15Record.h"

namespace PKCS11 {

/// Where what belongs to the type of an object stands in its record.
constexpr unsigned char kTypeAttributes = constructedTag(1);

/// The base of all object records: the attributes that every object has, which stand in the first element of
/// its record (ISO/IEC 7816-15, CommonObjectAttributes), and the steps that the records of all classes share.
class PKCS15CommonObjectAttributes : public PKCS15Record {
public:
    PKCS15CommonObjectAttributes();

    void read(const BERCoder& node) override;
    BERCoder node() const override;

    bool isPrivate() const { return hasFlag(0x80); }
    bool isModifiable() const { return hasFlag(0x40); }

    /// UTF-8.
    Blob label;
    /// Bit string with its unused-bits byte.
    Blob flags;
    /// Identifier of the authentication object that protects this one.
    Blob objectAuthId;
    Blob userConsent;
    /// The first tag byte of the record, which tells the kind of object: a SEQUENCE for the usual one.
    int objectType = kSequence;

protected:
    /// For the records of the object classes, which read and write all of their record themselves.
    explicit PKCS15CommonObjectAttributes(const char* undecodable) : PKCS15Record(undecodable) {}

    /// The record's type and its first element. Throws the text for a type that is neither a SEQUENCE nor one
    /// of [0] to [last].
    void readCommon(const BERCoder& record, unsigned char last, const char* unknownType);

private:
    bool hasFlag(unsigned char flag) const { return flags.size() >= 2 && (flags.at(1) & flag) != 0; }
};

} // namespace PKCS11
