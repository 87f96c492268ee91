#pragma once

#include "tools/vcard/Card.h"

#include <initializer_list>
#include <optional>
#include <string>
#include <vector>

namespace vcard {

/// Two digits per byte, either case; digits only. Throws std::invalid_argument otherwise.
Bytes fromHex(const std::string& text);
/// Upper case.
std::string toHex(const Bytes& bytes);
Bytes fromText(const std::string& text);
/// The parts one after the other.
Bytes join(std::initializer_list<Bytes> parts);
/// Big endian, two bytes.
Bytes twoBytes(unsigned value);

/// One BER-TLV element with a definite length; `tag` holds the tag's one to three bytes, first byte highest.
struct Tlv {
    unsigned tag = 0;
    Bytes value;
};
Bytes tlv(unsigned tag, const Bytes& value);
/// The elements that fill `bytes` exactly, not looking inside their values; nothing if they do not.
std::optional<std::vector<Tlv>> parseTlvs(const Bytes& bytes);

} // namespace vcard
