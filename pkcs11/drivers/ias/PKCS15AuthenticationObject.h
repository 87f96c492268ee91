#pragma once

#include "pkcs11/drivers/ias/PKCS15CommonObjectAttributes.h"
#include "pkcs11/drivers/ias/PKCS15Path.h"

#include <optional>

namespace PKCS11 {

/// How a PIN is presented to the card (ISO/IEC 7816-15, PasswordAttributes).
class PKCS15PinAttributes final : public PKCS15Record {
public:
    PKCS15PinAttributes();

    void read(const BERCoder& node) override;
    BERCoder node() const override;

    Blob pinFlags;
    Blob pinType;
    /// Lengths in characters of the PIN.
    Blob minLength;
    Blob storedLength;
    Blob maxLength;
    Blob pinReference;
    Blob padChar;
    Blob lastPinChange;
    PKCS15Path path;
};

/// An entry of the authentication object directory.
class PKCS15AuthenticationObject final : public PKCS15CommonObjectAttributes {
public:
    PKCS15AuthenticationObject();

    void read(const BERCoder& node) override;
    BERCoder node() const override;

    /// The object's own identifier, which the objects it protects refer to.
    Blob authId;
    /// None for all but PINs.
    std::optional<PKCS15PinAttributes> pin{std::in_place};
};

} // namespace PKCS11
