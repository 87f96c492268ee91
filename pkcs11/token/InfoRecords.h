/// The descriptive records that a card keeps in its attribute files. Each is a SEQUENCE (30) of OCTET STRINGs
/// (04): the record's own fields in order, then the encoded attribute set.
#pragma once

#include "pkcs11/token/PKCS11Attrs.h"

#include <initializer_list>

namespace PKCS11 {

/// What the records share: the attribute set, their fields as byte strings, import and export.
class InfoRecord : public PKCS11Attrs {
public:
    /// The encoded record. Belongs to the interface; nothing in the library calls it.
    Blob Export() const;

    /// Own field i as the record stores it; empty when the encoded record had fewer. Throws
    /// CKR_BUFFER_TOO_SMALL for a field that this kind of record does not have.
    const Blob& field(int i) const;
    /// Throws as field() does.
    void setField(int i, const Blob& value);

    /// CKA_LABEL of the attribute set, or the first field where the set lacks it.
    Blob getLabel() const { return attributeOrField(CKA_LABEL, 0); }

protected:
    explicit InfoRecord(int fields) : m_fields(static_cast<std::size_t>(fields)) {}
    InfoRecord(std::initializer_list<Blob> fields) : m_fields(fields) {}
    /// Takes the fields and the attribute set from the OCTET STRINGs of an encoded record. A record with
    /// fewer of them fills what it has, the last one counting as the attribute set. Throws what
    /// BERCoder::import throws.
    void importRecord(const Blob& encoded);
    Blob attributeOrField(CK_ATTRIBUTE_TYPE type, int field) const;

private:
    std::vector<Blob> m_fields;
};

/// Label, serial number and three single bytes (10, 6 and 15 by default).
class TokenInfo : public InfoRecord {
public:
    TokenInfo();
    /// Throws what BERCoder::import throws.
    explicit TokenInfo(const Blob& encoded);

    /// The first field, and the attribute where the set has it.
    void setLabel(const Blob& label);
    /// The second field.
    const Blob& getSerialNumber() const { return field(1); }
    void setSerialNumber(const Blob& serialNumber) { setField(1, serialNumber); }
};

/// The record of an object, with so many fields of its own: label and ID (or application), then what nobody
/// here reads.
template <int Fields>
class ObjectInfo : public InfoRecord {
public:
    ObjectInfo() : InfoRecord(Fields) {}
    explicit ObjectInfo(const Blob& encoded) : InfoRecord(Fields) { importRecord(encoded); }

    /// CKA_ID of the attribute set, or the second field.
    Blob getID() const { return attributeOrField(CKA_ID, 1); }
    /// CKA_APPLICATION of the attribute set, or the second field.
    Blob getApplication() const { return attributeOrField(CKA_APPLICATION, 1); }
};

using PrivateKeyInfo = ObjectInfo<3>;
using PublicKeyInfo = ObjectInfo<3>;
using CertificateInfo = ObjectInfo<4>;
using DataInfo = ObjectInfo<2>;
// Records that no driver here reads.
using ContainerInfo = ObjectInfo<6>;
using BlockCipherKeyInfo = ObjectInfo<3>;

} // namespace PKCS11
