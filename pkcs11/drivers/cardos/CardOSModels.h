/// The CardOS versions that the driver knows.
#pragma once

namespace PKCS11 {

struct CardOSModel {
    /// The two version bytes that the card answers.
    int version;
    int code;
    const char* name;
};

constexpr CardOSModel kCardOSModels[] = {
    {0xC802, 1, "CardOS M4.0"},    {0xC803, 2, "CardOS M4.01"}, {0xC804, 3, "CardOS M4.01a"},
    {0xC806, 4, "CardOS V4.2"},    {0xC807, 5, "CardOS V4.3"},  {0xC808, 6, "CardOS V4.3b"},
    {0xC809, 7, "CardOS V4.2b"},   {0xC80A, 7, "CardOS V4.2b"}, {0xC80B, 8, "CardOS V4.2c"},
    {0xC80C, 9, "CardOS V4.2cDI"}, {0xC80D, 10, "CardOS V4.4"}, {0xC901, 11, "CardOS V5.0"},
};

/// A card of any other version; driven like one before V5.0.
constexpr CardOSModel kUnknownCardOSModel = {0, 0, "unknown"};

/// From this code on, cards take RSA keys of 2048 bits without a loaded package.
constexpr int kCardOSFirstWith2048 = 5;
/// V5.0 reads keys, sets its security environment and counts its memory in ways of its own.
constexpr int kCardOSV50 = 11;

constexpr const CardOSModel& findCardOSModel(int version)
{
    for (const CardOSModel& model : kCardOSModels) {
        if (model.version == version)
            return model;
    }
    return kUnknownCardOSModel;
}

} // namespace PKCS11
