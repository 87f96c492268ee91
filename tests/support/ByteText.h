/// Bytes of test cards as text: hexadecimal digits, 30(0101FF) for a TLV object, 11*3 for a byte three times,
/// 'letters', and blanks between any of them.
#pragma once

#include "pkcs11/token/Hex.h"
#include "tools/vcard/Bytes.h"

#include <cctype>
#include <sstream>
#include <utility>

/// Up to a closing parenthesis or the end.
inline vcard::Bytes bytes(std::istream& text)
{
    vcard::Bytes all;
    std::string digits;
    for (char c = 0; c != ')';) {
        c = text.get(c) ? c : ')';
        if (std::isxdigit(c) != 0) {
            digits += c;
            continue;
        }
        const std::string word = std::exchange(digits, "");
        const unsigned tag = c == '(' ? static_cast<unsigned>(std::stoul(word, nullptr, 16)) : 0;
        all = vcard::join({all, tag != 0 ? vcard::tlv(tag, bytes(text)) : vcard::fromHex(word)});
        std::string letters;
        if (size_t count = 0; c == '*' && text >> count)
            all.resize(all.size() + count - 1, all.back());
        if (c == '\'' && std::getline(text, letters, c))
            all = vcard::join({all, vcard::fromText(letters)});
    }
    return all;
}
inline vcard::Bytes bytes(const std::string& text)
{
    std::istringstream stream(text);
    return bytes(stream);
}
inline PKCS11::Blob hex(const std::string& text)
{
    const vcard::Bytes all = bytes(text);
    return {all.begin(), all.end()};
}
