/// The families of simulated cards, with what tests need to know of each.
#pragma once

#include "pkcs11/frontend/SystemWrapper.h"
#include "pkcs11/pcsc/PCSCSlot.h"
#include "tools/vcard/Families.h"
#include "tools/vcard/Keys.h"

#include <algorithm>
#include <string_view>

struct Family {
    const char* name;
    const char* soPin;
    int keyPair; ///< of the first private key
    int eduVariant = 0;
    std::string title() const { return name + (eduVariant != 0 ? " " + std::to_string(eduVariant) : ""); }
    /// With RSA keys of 1024 bits.
    std::unique_ptr<vcard::Card> make(const char* pin = "123456") const
    {
        return vcard::findFamily(name)->make({pin, 1024, ""});
    }
};
constexpr Family kFamilies[] = {{"piv", "12345678", 0x9A},    {"cardos", "12345678", 0},
                                {"cardos-v5", "12345678", 0}, {"ias", "87654321", 0},
                                {"atrust", "12345678", 0},    {"edu", "12345678", 1, 1},
                                {"edu", "87654321", 0},       {"edu", "87654321", 2, 2}};

/// Numbers of their RSA key pairs.
constexpr int kKeyPairs[] = {0, 1, 2, 0x9A, 0x9C, 0x9D};

/// The first of that name.
inline const Family& familyNamed(std::string_view name)
{
    return *std::find_if(std::begin(kFamilies), std::end(kFamilies),
                         [name](const Family& family) { return family.name == name; });
}

/// Which kind of these cards a token made from now on takes the one in the first slot for.
inline void setEduVariant(int variant)
{
    dynamic_cast<PKCS11::PCSCSlot&>(*wrapper.slots()->getSlot(1)).setEduVariant(variant);
}
