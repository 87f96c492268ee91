/// The CardOS versions that the driver knows, from the two version bytes that the card answers.
#pragma once

namespace PKCS11 {

struct CardOSModel {
    unsigned char major;
    unsigned char minor;
    const char* name;
    int code;
};

constexpr CardOSModel kCardOSModels[] = {
    {0xC8, 0x02, "CardOS M4.0", 1},    {0xC8, 0x03, "CardOS M4.01", 2}, {0xC8, 0x04, "CardOS M4.01a", 3},
    {0xC8, 0x06, "CardOS V4.2", 4},    {0xC8, 0x07, "CardOS V4.3", 5},  {0xC8, 0x08, "CardOS V4.3b", 6},
    {0xC8, 0x09, "CardOS V4.2b", 7},   {0xC8, 0x0A, "CardOS V4.2b", 7}, {0xC8, 0x0B, "CardOS V4.2c", 8},
    {0xC8, 0x0C, "CardOS V4.2cDI", 9}, {0xC8, 0x0D, "CardOS V4.4", 10}, {0xC9, 0x01, "CardOS V5.0", 11},
};

/// A card of any other version works like one before V5.0.
constexpr CardOSModel kUnknownCardOSModel = {0x00, 0x00, "unknown", 0};

/// From this code up to the next, cards take RSA keys of 2048 bits without a loaded package.
constexpr int kCardOSFirstWith2048 = 5;
/// V5.0 reads keys, sets its security environment and counts its memory in ways of its own.
constexpr int kCardOSV50 = 11;

constexpr const CardOSModel& findCardOSModel(unsigned char major, unsigned char minor)
{
    for (const CardOSModel& model : kCardOSModels) {
        if (model.major == major && model.minor == minor)
            return model;
    }
    return kUnknownCardOSModel;
}

} // namespace PKCS11
