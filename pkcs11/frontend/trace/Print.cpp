#include "pkcs11/frontend/trace/Print.h"

#include "pkcs11/frontend/trace/Logger.h"
#include "pkcs11/token/Hex.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <iterator>

namespace PKCS11 {

namespace {

constexpr std::size_t kMaxPrinted = 1024;

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
    Logger::Log(Logger::kTrace, Blob(bytes, std::end(bytes)));
}

void PKCS11_PrintMem(const char* bytes, int length)
{
    if (!Logger::LogInit() || bytes == nullptr || length < 0)
        return;
    Logger::Log(Logger::kTrace, Blob(bytes, bytes + length));
}

void PKCS11_char2hex(char byte, char* out)
{
    PKCS11_mem2hex(&byte, 1, out);
}

} // namespace PKCS11
