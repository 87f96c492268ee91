#include "util/OpenSSLHelpers.h"

#include "pkcs11/frontend/trace/Logger.h"
#include "util/VantorException.h"

#include <openssl/asn1.h>
#include <openssl/bn.h>
#include <openssl/err.h>
#include <openssl/x509.h>

#include <array>
#include <new>
#include <string_view>

namespace {

constexpr int kUTCDigits = 10;
constexpr int kGeneralizedDigits = 12;

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

/// The end of a time, from its seconds on, is well formed: seconds, fraction, then Z or an offset.
bool hasZone(std::string_view text, std::size_t pos)
{
    const auto at = [text](std::size_t i) { return i < text.size() ? text[i] : '\0'; };
    if (at(pos) != '-' && at(pos) != 'Z' && at(pos) != '+') {
        pos += 2;
        if (at(pos) == '.') {
            do
                ++pos;
            while (isDigit(at(pos)));
        }
    }
    return at(pos) == 'Z' || at(pos) == '+' || at(pos + 5) == '-';
}

} // namespace

namespace OpenSSLHelpers {

void PrintErrorStack()
{
    std::array<char, 256> text{};
    bool isMemoryShort = false;
    while (const unsigned long code = ERR_get_error()) {
        isMemoryShort = isMemoryShort || ERR_GET_REASON(code) == ERR_R_MALLOC_FAILURE;
        ERR_error_string_n(code, text.data(), text.size());
        PKCS11::Logger::Log(PKCS11::Logger::kFailure, text.data());
    }
    if (isMemoryShort)
        throw std::bad_alloc();
}

CK_ATTRIBUTE BigToAttr(CK_ATTRIBUTE_TYPE type, const BIGNUM* number, std::vector<unsigned char>& storage)
{
    storage.resize(static_cast<std::size_t>(BN_num_bytes(number)));
    if (static_cast<std::size_t>(BN_bn2bin(number, storage.data())) != storage.size())
        throw VantorException("BigToAttr error BN_bn2bin returned wrong size", CKR_GENERAL_ERROR);
    return {type, storage.data(), static_cast<CK_ULONG>(storage.size())};
}

} // namespace OpenSSLHelpers

std::string X509_NAME_toString(const X509_NAME* name)
{
    std::array<char, 1000> text{};
    if (name == nullptr || X509_NAME_oneline(name, text.data(), static_cast<int>(text.size())) == nullptr)
        return {};
    return text.data();
}

CK_ATTRIBUTE CreateX509Attribute(CK_ATTRIBUTE_TYPE type, const X509_NAME* name)
{
    const unsigned char* der = nullptr;
    std::size_t length = 0;
    if (X509_NAME_get0_der(name, &der, &length) != 1)
        length = 0;
    // CK_ATTRIBUTE knows no const; nobody writes through it.
    return {type, const_cast<unsigned char*>(der), static_cast<CK_ULONG>(length)};
}

std::string getTimeFromASN1(const ASN1_TIME* time)
{
    if (time == nullptr || ASN1_STRING_get0_data(time) == nullptr)
        return {};
    const std::string_view text(reinterpret_cast<const char*>(ASN1_STRING_get0_data(time)),
                                static_cast<std::size_t>(ASN1_STRING_length(time)));
    const bool utc = ASN1_STRING_type(time) == V_ASN1_UTCTIME;
    const std::size_t taken = utc ? kUTCDigits : kGeneralizedDigits;
    if (text.size() < taken + 1 || (utc && text.size() > 17) || !hasZone(text, taken))
        return {};

    // The positions of a UTCTime for both kinds: the odd dates of a GeneralizedTime are known and stay.
    std::string date;
    for (const std::size_t pos : {4U, 2U, 0U}) {
        if (!isDigit(text[pos]) || !isDigit(text[pos + 1]))
            return {};
        date += (date.empty() ? "" : "/") + std::to_string((text[pos] - '0') * 10 + (text[pos + 1] - '0'));
    }
    return date;
}
