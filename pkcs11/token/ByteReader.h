#pragma once

#include "pkcs11/token/MultiTag.h"

#include <cstdint>
#include <optional>

namespace PKCS11 {

/// A TLV element (X.690) that is not looked into.
struct TlvElement {
    MultiTag tag;
    Blob value;
    /// The element as it stands, tag and length included.
    Blob encoded;
};

/// A bounded look at bytes that someone else owns: every step is checked, nothing is copied until taken. The
/// bytes must outlive the reader.
///
/// For fields of fixed size and for elements that are cut out whole, be they BER inside or not. BERCoder
/// stands on it and decodes whole trees; asn1_read_tag and asn1_find_tag look at DER in plain memory.
class ByteReader {
public:
    explicit ByteReader(const Blob& bytes, int position = 0) : m_bytes(bytes), m_position(position) {}

    int position() const { return m_position; }
    int left() const { return m_bytes.size() - m_position; }
    bool has(int count) const { return count >= 0 && count <= left(); }

    // All of these throw CKR_BUFFER_TOO_SMALL (0x150) where fewer bytes are left.

    /// The next byte, not consumed.
    unsigned char peek(int ahead = 0) const { return m_bytes.at(m_position + ahead); }
    unsigned char byte()
    {
        const unsigned char value = peek();
        ++m_position;
        return value;
    }
    /// Big endian, two bytes.
    int word()
    {
        const int high = byte();
        return high << 8 | byte();
    }
    Blob take(int count);
    void skip(int count);
    /// All that is left.
    Blob rest() { return take(left()); }

    /// The bytes of a tag. Throws CKR_DATA_INVALID (0x20) where the input ends within it.
    MultiTag tag();
    /// A length field; nothing for the indefinite form, as which FFFFFFFF counts too. Throws CKR_DATA_INVALID
    /// for more than 4 bytes.
    std::optional<std::uint32_t> length();
    /// The next element of definite length; nothing, and no step, where none stands whole.
    std::optional<TlvElement> element();

private:
    const Blob& m_bytes;
    int m_position;
};

} // namespace PKCS11
