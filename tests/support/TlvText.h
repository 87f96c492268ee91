/// TLV data of test cards as hexadecimal text; blanks are allowed in what goes in.
#pragma once

#include "pkcs11/token/Hex.h"
#include "tests/support/ScriptedCard.h"

inline PKCS11::Blob hex(const std::string& text)
{
    const vcard::Bytes bytes = scripted::bytes(text);
    return {bytes.begin(), bytes.end()};
}
inline std::string tlv(unsigned tag, const std::string& value)
{
    return vcard::toHex(vcard::tlv(tag, scripted::bytes(value)));
}
inline std::string seq(const std::string& value)
{
    return tlv(0x30, value);
}
