/// The descriptive records that a card keeps in its attribute files. Each is a SEQUENCE (30) of OCTET STRINGs
/// (04): the record's own fields in order, then the encoded attribute set.
#pragma once

#include "pkcs11/token/PKCS11Attrs.h"

#include <initializer_list>

namespace PKCS11 {

/// What the records share: their fields as byte strings, import and export.
class InfoRecord : public PKCS11Attrs {
public:
    /// The encoded record. Belongs to the interface; nothing in the library calls it.
    Blob Export() const;

    /// Own field i as the record stores it; empty when the encoded record had fewer. Throws
    /// CKR_BUFFER_TOO_SMALL for a field that this kind of record does not have.
    const Blob& field(int i) const;
    void setField(int i, const Blob& value);

protected:
    explicit InfoRecord(int fields);
    InfoRecord(std::initializer_list<Blob> fields);
    /// Takes the fields and the attribute set from the OCTET STRINGs of an encoded record. A record with
    /// fewer of them fills what it has, the last one counting as the attribute set. Throws what
    /// BERCoder::import throws.
    void importRecord(const Blob& encoded);

private:
    std::vector<Blob> m_fields;
};

/// Label, serial number and three single bytes (10, 6 and 15 by default).
class TokenInfo : public InfoRecord {
public:
    TokenInfo();
    explicit TokenInfo(const Blob& encoded);

    /// From the attribute set (CKA_LABEL), or the first field where the set lacks it.
    Blob getLabel() const;
    void setLabel(const Blob& label);
    /// The second field.
    const Blob& getSerialNumber() const { return field(1); }
    void setSerialNumber(const Blob& serialNumber) { setField(1, serialNumber); }
};

/// Records of the objects: label first, then ID (or application) where the attribute set lacks them.
class ObjectInfo : public InfoRecord {
public:
    /// CKA_LABEL of the attribute set, or the first field.
    Blob getLabel() const;
    /// CKA_ID of the attribute set, or the second field.
    Blob getID() const;

protected:
    using InfoRecord::InfoRecord;
};

/// An ObjectInfo with so many fields of its own.
template <int Fields>
class ObjectInfoOf : public ObjectInfo {
public:
    ObjectInfoOf() : ObjectInfo(Fields) {}
    explicit ObjectInfoOf(const Blob& encoded) : ObjectInfo(Fields) { importRecord(encoded); }
};

class PrivateKeyInfo : public ObjectInfoOf<3> {
    using ObjectInfoOf::ObjectInfoOf;
};
class PublicKeyInfo : public ObjectInfoOf<3> {
    using ObjectInfoOf::ObjectInfoOf;
};
class CertificateInfo : public ObjectInfoOf<4> {
    using ObjectInfoOf::ObjectInfoOf;
};
class DataInfo : public ObjectInfoOf<2> {
public:
    using ObjectInfoOf::ObjectInfoOf;

    /// CKA_APPLICATION of the attribute set, or the second field.
    Blob getApplication() const;
};
class ContainerInfo : public ObjectInfoOf<6> {
    using ObjectInfoOf::ObjectInfoOf;
};
class BlockCipherKeyInfo : public ObjectInfoOf<3> {
    using ObjectInfoOf::ObjectInfoOf;
};

} // namespace PKCS11
