#include "tools/vcard/Families.h"

#include "tools/vcard/AcosCard.h"
#include "tools/vcard/CardOSCard.h"
#include "tools/vcard/IasCard.h"
#include "tools/vcard/PivCard.h"

#include <algorithm>
#include <array>
#include <sstream>
#include <stdexcept>

namespace vcard {

namespace {

bool isDigits(const std::string& text)
{
    return std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

struct PivKeyKind {
    const char* name;
    int rsaBits;
    const char* curve;
};
constexpr PivKeyKind kPivKeyKinds[] = {{"rsa1024", 1024, ""}, {"rsa2048", 2048, ""}, {"rsa3072", 3072, ""},
                                       {"rsa4096", 4096, ""}, {"p256", 0, "P-256"},  {"p384", 0, "P-384"}};

/// A key in words, as in 9A=p256.
PivSlot pivSlot(const std::string& text)
{
    for (const unsigned char reference : {0x9A, 0x9C, 0x9D, 0x9E}) {
        for (const PivKeyKind& kind : kPivKeyKinds) {
            if (text == toHex({reference}) + "=" + kind.name)
                return {reference, kind.rsaBits, kind.curve};
        }
    }
    throw std::invalid_argument("no key of a PIV card: " + text);
}

std::vector<PivSlot> pivSlots(const std::string& keys)
{
    std::vector<PivSlot> slots;
    std::istringstream list(keys);
    for (std::string text; std::getline(list, text, ',');)
        slots.push_back(pivSlot(text));
    return slots;
}

std::unique_ptr<Card> makePiv(const CardOptions& options)
{
    if (!isDigits(options.pin) || options.pin.size() < 6 || options.pin.size() > 8)
        throw std::invalid_argument("the PIN of a PIV card has six to eight digits");
    PivOptions piv;
    piv.pin = options.pin;
    for (PivSlot& slot : piv.slots)
        slot.rsaBits = slot.rsaBits != 0 && options.rsaBits != 0 ? options.rsaBits : slot.rsaBits;
    if (!options.keys.empty())
        piv.slots = pivSlots(options.keys);
    return std::make_unique<PivCard>(piv);
}

std::unique_ptr<Card> makeAtrust(const CardOptions& options)
{
    if (options.pin.empty() || options.pin.size() > 8)
        throw std::invalid_argument("the PIN of an A-Trust card has one to eight characters");
    return std::make_unique<AcosTrustCard>(options.pin);
}

std::unique_ptr<Card> makeEdu(const CardOptions& options)
{
    if (options.pin.empty() || options.pin.size() > 16 || !isDigits(options.pin))
        throw std::invalid_argument("the PIN of an education card has one to sixteen digits");
    return std::make_unique<AcosEduCard>(options.pin);
}

template <bool isV50>
std::unique_ptr<Card> makeCardOS(const CardOptions& options)
{
    if (options.pin.size() < 4 || options.pin.size() > 10)
        throw std::invalid_argument("the PIN of a CardOS card has four to ten characters");
    CardOSOptions cardOS;
    cardOS.isV50 = isV50;
    cardOS.rsaBits = options.rsaBits;
    cardOS.pin = options.pin;
    return std::make_unique<CardOSCard>(cardOS);
}

std::unique_ptr<Card> makeIas(const CardOptions& options)
{
    if (!isDigits(options.pin) || options.pin.size() < 4 || options.pin.size() > 8)
        throw std::invalid_argument("the PIN of an IAS-ECC card has four to eight digits");
    IasOptions ias;
    ias.pin = options.pin;
    ias.rsaBits = options.rsaBits != 0 ? options.rsaBits : ias.rsaBits;
    return std::make_unique<IasCard>(ias);
}

constexpr std::array kFamilies = {
    Family{"piv", "PIV: RSA keys 9A, 9C, 9D and EC key 9E with certificates", makePiv},
    Family{"cardos", "CardOS V4.3b: one RSA key of 1024 bits, certificate, data object", makeCardOS<false>},
    Family{"cardos-v5", "CardOS V5.0: one RSA key of 2048 bits, certificate, data object", makeCardOS<true>},
    Family{"ias", "IAS-ECC: two RSA keys of 2048 bits, certificates, data objects (PKCS#15)", makeIas},
    Family{"atrust", "A-Trust ACOS: one RSA key of 1024 bits, certificate, cardholder data", makeAtrust},
    Family{"edu", "ACOS EDU: two RSA keys of 1024 bits, certificates, data files", makeEdu},
};

} // namespace

const Family* familiesBegin()
{
    return kFamilies.data();
}

const Family* familiesEnd()
{
    return kFamilies.data() + kFamilies.size();
}

const Family* findFamily(const std::string& name)
{
    const auto* found = std::find_if(familiesBegin(), familiesEnd(),
                                     [&name](const Family& family) { return name == family.name; });
    return found == familiesEnd() ? nullptr : found;
}

} // namespace vcard
