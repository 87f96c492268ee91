#include "tools/vcard/Families.h"

#include "tools/vcard/PivCard.h"

#include <algorithm>
#include <array>
#include <stdexcept>

namespace vcard {

namespace {

std::unique_ptr<Card> makePiv(const CardOptions& options)
{
    const bool digits =
        std::all_of(options.pin.begin(), options.pin.end(), [](char c) { return c >= '0' && c <= '9'; });
    if (!digits || options.pin.size() < 6 || options.pin.size() > 8) {
        throw std::invalid_argument("the PIN of a PIV card has six to eight digits");
    }
    PivOptions piv;
    piv.pin = options.pin;
    for (PivSlot& slot : piv.slots) {
        slot.rsaBits = slot.rsaBits != 0 && options.rsaBits != 0 ? options.rsaBits : slot.rsaBits;
    }
    return std::make_unique<PivCard>(piv);
}

constexpr std::array families = {
    Family{"piv", "PIV: RSA keys 9A, 9C, 9D and EC key 9E with certificates", makePiv},
};

} // namespace

const Family* familiesBegin()
{
    return families.data();
}

const Family* familiesEnd()
{
    return families.data() + families.size();
}

const Family* findFamily(const std::string& name)
{
    const auto* found = std::find_if(familiesBegin(), familiesEnd(),
                                     [&name](const Family& family) { return name == family.name; });
    return found == familiesEnd() ? nullptr : found;
}

} // namespace vcard
