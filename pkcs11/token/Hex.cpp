#include "pkcs11/token/Hex.h"

#include <cstring>

namespace PKCS11 {

namespace {

constexpr char kDigits[] = "0123456789ABCDEF";

unsigned int nibble(char c)
{
    if (c >= 'a' && c <= 'f')
        return static_cast<unsigned int>(c - 'a' + 10);
    if (c >= 'A' && c <= 'F')
        return static_cast<unsigned int>(c - 'A' + 10);
    return static_cast<unsigned int>(c - '0');
}

} // namespace

unsigned char PKCS11_hex2char(const char* two)
{
    return static_cast<unsigned char>(nibble(two[0]) * 16 + nibble(two[1]));
}

void PKCS11_hex2mem(const char* hex, char* out)
{
    for (; hex[0] != '\0' && hex[1] != '\0'; hex += 2)
        *out++ = static_cast<char>(PKCS11_hex2char(hex));
}

Blob PKCS11_hex2blob(const char* hex)
{
    // The last byte of a text with an odd number of digits stays 00.
    Blob bytes(static_cast<int>((std::strlen(hex) + 1) / 2), 0);
    PKCS11_hex2mem(hex, reinterpret_cast<char*>(bytes.data()));
    return bytes;
}

void PKCS11_mem2hex(const char* in, int n, char* out)
{
    for (int i = 0; i < n; ++i) {
        const auto byte = static_cast<unsigned char>(in[i]);
        *out++ = kDigits[byte >> 4];
        *out++ = kDigits[byte & 0x0F];
    }
}

std::string PKCS11_blob2hex(const Blob& bytes)
{
    std::string text(static_cast<std::size_t>(bytes.size()) * 2, '\0');
    PKCS11_mem2hex(reinterpret_cast<const char*>(bytes.data()), bytes.size(), text.data());
    return text;
}

} // namespace PKCS11
