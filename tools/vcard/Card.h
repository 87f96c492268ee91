#pragma once

#include <vector>

namespace vcard {

using Bytes = std::vector<unsigned char>;

/// A card as a reader sees it: an answer to reset, and answers to commands.
class Card {
public:
    Card() = default;
    Card(const Card&) = delete;
    Card& operator=(const Card&) = delete;
    virtual ~Card() = default;

    virtual Bytes atr() const = 0;
    /// Power-on or warm reset: selections, verified PINs and waiting answers are lost.
    virtual void reset() = 0;
    /// One command APDU (ISO 7816-4, short or extended); the answer ends with the status word.
    virtual Bytes transmit(const Bytes& command) = 0;
};

} // namespace vcard
