#pragma once

#include "pkcs11/token/BERCoder.h"

namespace PKCS11 {

/// The attribute store of an object and its form on the card: a SET (31) of SEQUENCEs (30), each the
/// attribute type as an OBJECT IDENTIFIER (06) of 4 bytes, big endian, and the value as an OCTET STRING (04).
/// A boolean is one byte. Attributes keep the order of their insertion; a type occurs at most once.
class PKCS11Attrs : public BERCoder {
public:
    PKCS11Attrs();
    /// Imports an encoded set as it stands. Throws what BERCoder::import throws.
    explicit PKCS11Attrs(const Blob& encoded);

    /// Replaces the value of the type or appends it.
    void SetParam(const Blob& type, const Blob& value);
    void SetParam(CK_ATTRIBUTE_TYPE type, const Blob& value);
    /// Stores one byte: 1 when the value is exactly 1, otherwise 0.
    void SetParam(CK_ATTRIBUTE_TYPE type, unsigned char value);
    /// Stores each entry of the template that has a value and whose type may be written to a card. Belongs to
    /// the interface; nothing in the library calls it.
    void SetParam(const CK_ATTRIBUTE* attributes, CK_ULONG count);

    /// The stored bytes, or none.
    void GetParam(const Blob& type, Blob& value) const;
    void GetParam(CK_ATTRIBUTE_TYPE type, Blob& value) const;
    /// True only when the first stored byte is 1.
    bool GetParam(CK_ATTRIBUTE_TYPE type) const;

    /// Applies every attribute of an encoded set. Throws what BERCoder::import throws.
    void SetAttrs(const Blob& encoded);
    /// The encoded set, without the types that are never written to a card.
    Blob GetAttrs() const;

private:
    /// Index of the component with that type, or getSize().
    int find(const Blob& type) const;
    /// Gives component i the value, or appends the attribute.
    void put(int i, const Blob& type, const Blob& value);
};

} // namespace PKCS11
