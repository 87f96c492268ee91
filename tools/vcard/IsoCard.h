#pragma once

#include "tools/vcard/Bytes.h"
#include "tools/vcard/Card.h"

#include <cstddef>
#include <utility>

namespace vcard {

/// Status words of ISO 7816-4 that the cards here answer with.
// NOLINTBEGIN(readability-identifier-naming): the namespace says what they are
namespace sw {
constexpr unsigned short ok = 0x9000;
constexpr unsigned short moreData = 0x6100; ///< low byte: how many bytes wait, 00 for 256 and more
constexpr unsigned short endOfFile = 0x6282;
constexpr unsigned short retriesLeft = 0x63C0; ///< low nibble: how many
constexpr unsigned short wrongLength = 0x6700;
constexpr unsigned short channelNotSupported = 0x6881;
constexpr unsigned short secureMessagingNotSupported = 0x6882;
constexpr unsigned short lastOfChainExpected = 0x6883;
constexpr unsigned short wrongFileStructure = 0x6981;
constexpr unsigned short securityStatusNotSatisfied = 0x6982;
constexpr unsigned short blocked = 0x6983;
constexpr unsigned short conditionsNotSatisfied = 0x6985;
constexpr unsigned short noCurrentEF = 0x6986;
constexpr unsigned short wrongData = 0x6A80;
constexpr unsigned short fileNotFound = 0x6A82;
constexpr unsigned short recordNotFound = 0x6A83;
constexpr unsigned short wrongP1P2 = 0x6A86;
constexpr unsigned short referenceNotFound = 0x6A88;
constexpr unsigned short wrongOffset = 0x6B00;
constexpr unsigned short exactLength = 0x6C00; ///< low byte: the Le to use
constexpr unsigned short insNotSupported = 0x6D00;
constexpr unsigned short claNotSupported = 0x6E00;
} // namespace sw
// NOLINTEND(readability-identifier-naming)

/// A command as the card's application sees it: parsed, and put together when it came in a chain (then with
/// the class byte of the last piece, so `cla` never carries the chaining bit).
struct Command {
    unsigned char cla = 0;
    unsigned char ins = 0;
    unsigned char p1 = 0;
    unsigned char p2 = 0;
    Bytes data;
    bool hasLe = false;
    size_t le = 0; ///< most bytes wanted: 1 to 256, or to 65536 in an extended command; 0 without Le
    bool leIsMaximum = false; ///< Le was coded as zeros: "all there is"
    bool extended = false;

    unsigned p1p2() const { return static_cast<unsigned>(p1) << 8 | p2; }
};

/// What the application answers: always all the data; IsoCard deals it out.
struct Response {
    Bytes data;
    unsigned short sw = sw::ok;

    Response() = default;
    // Implicit, deliberately: `return sw::wrongLength;`, `return bytes;`
    Response(unsigned short status) : sw(status) {}   // NOLINT(google-explicit-constructor)
    Response(Bytes bytes) : data(std::move(bytes)) {} // NOLINT(google-explicit-constructor)
    Response(Bytes bytes, unsigned short status) : data(std::move(bytes)), sw(status) {}
};

/// An answer to reset with these historical bytes (at most 15) that offers T=1, or T=0.
Bytes makeAtr(const Bytes& historicalBytes, bool t0 = false);
/// Whether the first protocol that it offers is T=0 (ISO 7816-3: there is no TD1, or one that says so).
bool isT0(const Bytes& atr);

/// ISO 7816-4 below the applications: parses short and extended commands of all cases, joins chains (class
/// bit 0x10), deals out long answers, and refuses what no card takes: wrong lengths (6700), other logical
/// channels (6881), secure messaging (6882), broken chains (6883). Data that a command without Le brings
/// about waits for GET RESPONSE, under T=0 data that answers command data too, and there a Le that is not the
/// length of the data is corrected (6Cxx). Under T=1 data comes at once, as much as Le allows, and 61xx
/// announces the rest. Classes 80 and up are left to process(), and are never chained.
class IsoCard : public Card {
public:
    Bytes atr() const final { return m_atr; }
    void reset() final;
    Bytes transmit(const Bytes& command) final;

protected:
    explicit IsoCard(Bytes atr);

    /// One complete command. Everything that an application refuses, unknown instructions (6D00) and classes
    /// (6E00) included, is refused here.
    virtual Response process(const Command& command) = 0;
    /// The card lost power: selections and verified PINs are gone.
    virtual void onReset() = 0;
    /// A command whose Lc and length do not fit together. For cards that are known to take such a command all
    /// the same; the others answer as here.
    virtual Response malformed(const Bytes& command);

private:
    Bytes joinChain(Command piece);
    Bytes getResponse(const Command& command);
    Bytes deal(const Command& command, Response response);
    /// The next `wanted` bytes of what waits, with 61xx if more does.
    Bytes handOut(size_t wanted);

    Bytes m_atr;
    bool m_isT0;
    Command m_chain;
    bool m_chaining = false;
    Bytes m_waiting;
    unsigned short m_waitingStatus = sw::ok;
};

} // namespace vcard
