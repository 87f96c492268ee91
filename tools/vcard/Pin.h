#pragma once

#include "tools/vcard/Card.h"

#include <cstddef>
#include <string>

namespace vcard {

/// The characters of a PIN, filled up to the eight bytes of a block.
constexpr size_t kPinBlock = 8;
Bytes pinBlock(const std::string& pin, unsigned char filler = 0xFF);
/// So many decimal digits at least, then FF.
bool isPinBlock(const Bytes& block, std::ptrdiff_t fewest);

/// Reference data with a retry counter and a verified state, as ISO 7816-4 VERIFY and its kin treat it. The
/// operations answer with the status word: 9000, 63Cx after a failure with x tries left, 6983 when blocked.
/// What form the presented bytes must have (length, padding) is the card's business.
class Pin {
public:
    explicit Pin(Bytes value);

    /// VERIFY. No bytes ask for the state: 9000 when verified, else 63Cx; that uses up no try.
    unsigned short verify(const Bytes& presented);
    /// CHANGE REFERENCE DATA with the old value: a failure counts as for verify().
    unsigned short change(const Bytes& presented, Bytes fresh);
    /// CHANGE REFERENCE DATA without the old value: 6982 unless verified.
    unsigned short changeVerified(Bytes fresh);
    /// RESET RETRY COUNTER once the right to do so was shown: all tries again, and a new value if there is
    /// one. The verified state stays.
    void unblock(Bytes fresh = {});
    /// Reset of the card or of its security state.
    void forget() { m_verified = false; }

    bool verified() const { return m_verified; }
    int triesLeft() const { return m_left; }
    bool blocked() const { return m_left == 0; }

private:
    Bytes m_value;
    int m_left;
    bool m_verified = false;
};

} // namespace vcard
