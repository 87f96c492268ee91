#include "pkcs11/frontend/trace/Print.h"

#include "pkcs11/frontend/trace/Logger.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string>

namespace PKCS11 {

namespace {

constexpr std::size_t kMaxPrinted = 1024;

/// As many digits as a trace line takes, or fewer.
void logHex(const unsigned char* bytes, std::size_t length)
{
    std::string text(length * 2, ' ');
    for (std::size_t i = 0; i < length; ++i)
        PKCS11_char2hex(static_cast<char>(bytes[i]), &text[2 * i]);
    Logger::Log(Logger::kTrace, text.c_str());
}

} // namespace

void PKCS11_PrintStr(const char* text, int length)
{
    if (!Logger::LogInit() || text == nullptr || length < 0)
        return;
    char line[kMaxPrinted];
    const std::size_t count = strnlen(text, std::min(static_cast<std::size_t>(length), sizeof(line) - 1));
    std::memcpy(line, text, count);
    line[count] = '\0';
    Logger::Log(Logger::kTrace, line);
}

void PKCS11_PrintInfo(const char* text)
{
    if (text != nullptr)
        PKCS11_PrintStr(text, static_cast<int>(strnlen(text, kMaxPrinted)));
}

void PKCS11_PrintInt(int value)
{
    if (!Logger::LogInit())
        return;
    const auto bits = static_cast<unsigned int>(value);
    const unsigned char bytes[] = {static_cast<unsigned char>(bits >> 24),
                                   static_cast<unsigned char>(bits >> 16),
                                   static_cast<unsigned char>(bits >> 8), static_cast<unsigned char>(bits)};
    logHex(bytes, sizeof(bytes));
}

void PKCS11_PrintMem(const char* bytes, int length)
{
    if (!Logger::LogInit() || bytes == nullptr || length < 0)
        return;
    logHex(reinterpret_cast<const unsigned char*>(bytes), static_cast<std::size_t>(length));
}

void PKCS11_char2hex(char byte, char* out)
{
    constexpr const char kDigits[] = "0123456789ABCDEF";
    const auto value = static_cast<unsigned char>(byte);
    out[0] = kDigits[value >> 4];
    out[1] = kDigits[value & 0x0F];
}

} // namespace PKCS11
