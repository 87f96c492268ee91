#pragma once

#include "pkcs11/token/Blob.h"

namespace PKCS11 {

/// The bytes of one BER tag (X.690, 8.1.2), first byte first; 05 (NULL) by default. A tag is one byte whose
/// low five bits are not 11111, or a first byte with 11111 followed by bytes that have bit 8 set but for the
/// last.
class MultiTag : public Blob {
public:
    MultiTag();
    /// The tag's bytes from its integer value, most significant non-zero byte first, as in 0x7F49; tag 0 is
    /// the byte 00. Throws CKR_DATA_INVALID (0x20) for bytes that are no tag.
    MultiTag(int tag); // NOLINT(google-explicit-constructor): tags are written as numbers everywhere
    /// Throws CKR_DATA_INVALID (0x20) for bytes that are no tag.
    explicit MultiTag(const Blob& bytes);

    /// True when the value consists of components (bit 6 of the first byte).
    bool IsConstructed() const;

    bool operator==(int tag) const;
    bool operator!=(int tag) const;

private:
    void ChekTag() const;
};

} // namespace PKCS11
