#pragma once

#include "pkcs11/drivers/ias/PKCS15Record.h"

namespace PKCS11 {

/// Where a file or a part of it is (ISO/IEC 7816-15, Path). Broken bytes keep what was read before the break.
class PKCS15Path final : public PKCS15Record {
public:
    PKCS15Path() : PKCS15Record(nullptr) {}

    void read(const BERCoder& node) override;
    BERCoder node() const override;

    /// True when something was imported, whatever it was.
    bool isPresent = false;
    /// File identifiers one after the other.
    Blob path;
    /// First byte and number of bytes in the file.
    Blob index;
    Blob length;
};

} // namespace PKCS11
