#pragma once

#include "pkcs11/drivers/ias/PKCS15CommonObjectAttributes.h"
#include "pkcs11/drivers/ias/PKCS15Path.h"

#include <optional>

namespace PKCS11 {

/// How a PIN is presented to the card (ISO/IEC 7816-15, PasswordAttributes).
class PKCS15PinAttributes final : public PKCS15PathSequence {
public:
    PKCS15PinAttributes();

    const Blob& pinFlags() const { return field(0); }
    void setPinFlags(const Blob& pinFlags) { setField(0, pinFlags); }
    const Blob& pinType() const { return field(1); }
    void setPinType(const Blob& pinType) { setField(1, pinType); }
    /// Lengths in characters of the PIN.
    const Blob& minLength() const { return field(2); }
    void setMinLength(const Blob& length) { setField(2, length); }
    const Blob& storedLength() const { return field(3); }
    void setStoredLength(const Blob& length) { setField(3, length); }
    const Blob& maxLength() const { return field(4); }
    void setMaxLength(const Blob& length) { setField(4, length); }
    const Blob& pinReference() const { return field(5); }
    void setPinReference(const Blob& reference) { setField(5, reference); }
    const Blob& padChar() const { return field(6); }
    void setPadChar(const Blob& padChar) { setField(6, padChar); }
    const Blob& lastPinChange() const { return field(7); }
    void setLastPinChange(const Blob& date) { setField(7, date); }
};

/// An entry of the authentication object directory.
class PKCS15AuthenticationObject final : public PKCS15CommonObjectAttributes {
public:
    PKCS15AuthenticationObject();

    /// The object's own identifier, which the objects it protects refer to.
    const Blob& authId() const { return m_classAttributes.field(0); }
    void setAuthId(const Blob& authId) { m_classAttributes.setField(0, authId); }
    /// Null for all but PINs.
    const PKCS15PinAttributes* pinAttributes() const { return m_pin ? &*m_pin : nullptr; }
    PKCS15PinAttributes* pinAttributes() { return m_pin ? &*m_pin : nullptr; }

protected:
    void read(const BERCoder& node) override;
    void write(BERCoder& node) const override;

private:
    PKCS15Sequence m_classAttributes;
    std::optional<PKCS15PinAttributes> m_pin;
};

} // namespace PKCS11
