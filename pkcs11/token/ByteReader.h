#pragma once

#include "pkcs11/token/Blob.h"

namespace PKCS11 {

/// A bounded look at bytes that someone else owns: every step is checked, nothing is copied until taken. The
/// bytes must outlive the reader.
class ByteReader {
public:
    explicit ByteReader(const Blob& bytes) : m_bytes(bytes) {}

    int position() const { return m_position; }
    int left() const { return m_bytes.size() - m_position; }
    bool has(int count) const { return count >= 0 && count <= left(); }
    /// The next byte, not consumed; throws CKR_BUFFER_TOO_SMALL (0x150) at the end, as every step here does.
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

private:
    const Blob& m_bytes;
    int m_position = 0;
};

} // namespace PKCS11
