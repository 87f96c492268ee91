#include "pkcs11/token/ByteOrder.h"

#include "pkcs11/PKCS11Exception.h"

#include <algorithm>
#include <cstdint>

namespace PKCS11 {

namespace {

template <class Byte>
std::uint32_t bigEndian32(const Byte* bytes)
{
    std::uint32_t value = 0;
    for (int i = 0; i < 4; ++i)
        value = value << 8 | static_cast<unsigned char>(bytes[i]);
    return value;
}

bool isSet(unsigned char byte)
{
    return byte != 0x00;
}

} // namespace

Blob long2blob(unsigned long value)
{
    Blob bytes(4, 0);
    for (int i = 3; i >= 0; --i, value >>= 8)
        bytes[i] = static_cast<unsigned char>(value);
    return bytes;
}

unsigned long blob2long(const Blob& bytes)
{
    if (bytes.size() != 4)
        throw PKCS11Exception(CKR_DATA_INVALID);
    return bigEndian32(bytes.data());
}

Blob PKCS11_short2blob(unsigned short value)
{
    Blob bytes(2, static_cast<unsigned char>(value));
    bytes[0] = static_cast<unsigned char>(value >> 8);
    return bytes;
}

int PKCS11_blob2int(const Blob& bytes)
{
    switch (bytes.size()) {
    case 1:
        return bytes[0];
    case 2:
        return bytes[0] << 8 | bytes[1];
    case 4:
        return static_cast<int>(bigEndian32(bytes.data()));
    default:
        return 0;
    }
}

void putShort(Blob& bytes, int position, unsigned short value)
{
    bytes.at(position) = static_cast<unsigned char>(value >> 8);
    bytes.at(position + 1) = static_cast<unsigned char>(value & 0xFF);
}

Blob stripLeadingZeros(const Blob& bytes)
{
    return Blob(std::find_if(bytes.begin(), bytes.end(), isSet), bytes.end());
}

Blob stripSignByte(const Blob& bytes)
{
    return !bytes.empty() && bytes.front() == 0x00 ? bytes.slice(1) : bytes;
}

Blob stripTrailingZeros(const Blob& bytes)
{
    Blob stripped = bytes;
    while (!stripped.empty() && !isSet(stripped.back()))
        stripped.pop_back();
    return stripped;
}

long PKCS11_mem2long(const char* bytes)
{
    // The sign of a 4-byte long on every host, so that PKCS11_long2mem is the inverse.
    return static_cast<std::int32_t>(bigEndian32(bytes));
}

void PKCS11_long2mem(long value, char* bytes)
{
    auto rest = static_cast<std::uint32_t>(value);
    for (int i = 3; i >= 0; --i, rest >>= 8)
        bytes[i] = static_cast<char>(static_cast<unsigned char>(rest));
}

unsigned long PKCS11_memLI2long(const Blob& bytes)
{
    unsigned long value = 0;
    for (int i = 3; i >= 0; --i)
        value = value << 8 | bytes.at(i);
    return value;
}

} // namespace PKCS11
