#pragma once

#include "tools/vcard/Card.h"

#include <memory>
#include <string>

namespace vcard {

/// What the user of quarvel-vcard can choose about a card.
struct CardOptions {
    std::string pin = "123456";
    int rsaBits = 0;  ///< of every RSA key of the card; 0 leaves each at its own size
    std::string keys; ///< of a PIV card, "9A=p256,9C=rsa3072"; empty leaves it its usual ones
};

/// A card family by the name that selects it on the command line.
struct Family {
    const char* name;
    const char* about;
    std::unique_ptr<Card> (*make)(const CardOptions& options);
};

/// The table of families, in the order of the help text; its end.
const Family* familiesBegin();
const Family* familiesEnd();
/// nullptr when no family has this name.
const Family* findFamily(const std::string& name);

} // namespace vcard
