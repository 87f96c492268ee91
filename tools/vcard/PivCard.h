#pragma once

#include "tools/vcard/IsoCard.h"
#include "tools/vcard/Keys.h"
#include "tools/vcard/Pin.h"

#include <map>
#include <string>
#include <vector>

namespace vcard {

/// One key with its certificate, by its key reference of SP 800-73 (9A, 9C, 9D, 9E).
struct PivSlot {
    unsigned char reference = 0;
    int rsaBits = 0;             ///< 1024, 2048, 3072 or 4096; 0 is an EC key
    std::string curve = "P-256"; ///< or P-384
};

struct PivOptions {
    std::vector<PivSlot> slots = {{0x9A, 2048}, {0x9C, 1024}, {0x9D, 2048}, {0x9E, 0}};
    std::string pin = "123456";
    std::string puk = "12345678";
    /// SP 800-73 has no VERIFY of the PUK (6A88); some cards take it all the same.
    bool verifiesPuk = false;
    Bytes historicalBytes = fromText("QV-PIV");
    bool t0 = false;
};

/// A PIV card as SP 800-73-4 Part 2 describes it, with the keys of SP 800-78-5, with the card holder's side
/// of its commands: SELECT, GET DATA, VERIFY, CHANGE REFERENCE DATA, RESET RETRY COUNTER, and GENERAL
/// AUTHENTICATE with a challenge.
class PivCard : public IsoCard {
public:
    /// Throws std::invalid_argument for a key of another size or curve than PIV knows.
    explicit PivCard(const PivOptions& options = {});

    /// Puts an object (53 ... or 7E ...) under the tag 5FC1xx, as GET DATA returns it; an empty one takes it
    /// away.
    void putObject(unsigned char lastTagByte, Bytes object);
    /// The DER certificate that was made for the key, or nothing.
    Bytes certificate(unsigned char reference) const;
    const Pin& pin() const { return m_pin; }

protected:
    Response process(const Command& command) override;
    void onReset() override;

private:
    struct Key {
        const RsaKey* rsa = nullptr;
        const EcKey* ec = nullptr;
        Bytes certificate;
        unsigned char algorithm = 0; ///< what GENERAL AUTHENTICATE must name

        /// Length of a challenge: a block as long as the modulus, a hash as long as a coordinate.
        size_t size() const { return ec != nullptr ? ec->size() : rsa->size(); }
    };

    Response selectApplication(const Command& command);
    Response getData(const Command& command) const;
    Response verify(const Command& command);
    Response changeReferenceData(const Command& command);
    Response resetRetryCounter(const Command& command);
    Response generalAuthenticate(const Command& command, bool pinJustVerified);

    std::map<unsigned char, Key> m_keys;
    std::map<unsigned char, Bytes> m_objects;
    Pin m_pin;
    Pin m_puk;
    bool m_verifiesPuk = false;
    bool m_selected = false;
    bool m_pinJustVerified = false;
};

} // namespace vcard
