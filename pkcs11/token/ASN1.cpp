#include "pkcs11/token/ASN1.h"

#include "pkcs11/token/BERTags.h"

#include <algorithm>

namespace PKCS11 {

namespace {

constexpr unsigned int kClassBits = 0xE0;
constexpr int kMaxLongTagBytes = 3;

constexpr unsigned char kExplicitVersion = constructedTag(0);

/// Memory that someone else owns.
struct View {
    const unsigned char* data = nullptr;
    unsigned int length = 0;

    explicit operator bool() const { return data != nullptr; }
    /// What stands after a part of this view.
    View after(const View& part) const
    {
        const unsigned char* next = part.data + part.length;
        return {next, static_cast<unsigned int>(data + length - next)};
    }
};

View find(const View& in, unsigned int wanted)
{
    View found;
    found.data = asn1_find_tag(in.data, in.length, wanted, &found.length);
    return found;
}

/// The contents of the TLV at the start of the view, null when it has another tag.
View first(const View& in, unsigned int wanted)
{
    View content{in.data, 0};
    unsigned int cls = 0;
    unsigned int tag = 0;
    if (asn1_read_tag(&content.data, in.length, &cls, &tag, &content.length) != 0 || (cls | tag) != wanted)
        return {};
    return content;
}

/// The subjectPublicKey bits of a certificate (RFC 5280, 4.1) after their count of unused bits.
View subjectPublicKey(const View& cert)
{
    const View certificate = first(cert, kSequence);
    View rest = certificate ? first(certificate, kSequence) : View{};
    if (!rest)
        return {};
    if (const View version = first(rest, kExplicitVersion))
        rest = rest.after(version);
    // Signature algorithm, issuer, validity, subject, subjectPublicKeyInfo; the serial number is no SEQUENCE.
    View keyInfo;
    for (int i = 0; i < 5; ++i) {
        keyInfo = find(rest, kSequence);
        if (!keyInfo)
            return {};
        rest = rest.after(keyInfo);
    }
    const View bits = find(keyInfo, kBitString);
    if (!bits || bits.length == 0 || bits.data[0] != 0)
        return bits;
    return {bits.data + 1, bits.length - 1};
}

/// Modulus and exponent of the certificate's RSAPublicKey (RFC 8017, A.1.1): a SEQUENCE of two INTEGERs.
bool findPublicKey(const View& cert, View& modulus, View& exponent)
{
    const View bits = subjectPublicKey(cert);
    const View key = bits ? first(bits, kSequence) : View{};
    modulus = key ? first(key, kInteger) : View{};
    if (!modulus || modulus.length == 0)
        return false;
    const View rest = key.after(modulus);
    exponent = first(rest, kInteger);
    return exponent && exponent.length != 0 && rest.after(exponent).length == 0;
}

bool copyOut(const View& from, unsigned char* out, unsigned int* room)
{
    if (out == nullptr || room == nullptr || *room < from.length)
        return false;
    std::copy(from.data, from.data + from.length, out);
    *room = from.length;
    return true;
}

} // namespace

int asn1_read_tag(const unsigned char** p, unsigned int len, unsigned int* cls, unsigned int* tag,
                  unsigned int* length)
{
    const unsigned char* in = *p;
    *p = nullptr;
    *cls = 0;
    *tag = 0;
    *length = 0;
    if (in == nullptr || len < 2)
        return -1;
    const unsigned char* const end = in + len;
    const unsigned int head = *in++;
    if (head == 0x00 || head == 0xFF)
        return 0;

    unsigned int number = head & kLongTag;
    if (number == kLongTag) {
        unsigned int byte = 0x80;
        for (int i = 0; i < kMaxLongTagBytes && byte >= 0x80; ++i) {
            if (in == end)
                return -1;
            byte = *in++;
            number = number << 8 | byte;
        }
        if (byte >= 0x80)
            return -1;
    }

    if (in == end)
        return -1;
    unsigned int size = *in++;
    if (size >= kLongLength) {
        const int count = static_cast<int>(size & 0x7F);
        if (count > kMaxLengthBytes || count > end - in)
            return -1;
        size = 0;
        for (int i = 0; i < count; ++i)
            size = size << 8 | *in++;
    }
    if (size > static_cast<unsigned int>(end - in))
        return -1;

    *cls = head & kClassBits;
    *tag = number;
    *length = size;
    *p = in;
    return 0;
}

const unsigned char* asn1_find_tag(const unsigned char* p, unsigned int len, unsigned int wanted,
                                   unsigned int* length)
{
    *length = 0;
    if (p == nullptr)
        return nullptr;
    const unsigned char* const end = p + len;
    while (p != end) {
        unsigned int cls = 0;
        unsigned int tag = 0;
        unsigned int size = 0;
        if (asn1_read_tag(&p, static_cast<unsigned int>(end - p), &cls, &tag, &size) != 0 || p == nullptr)
            return nullptr;
        for (unsigned int rest = tag; rest > 0xFF; rest >>= 8)
            cls <<= 8;
        if ((cls | tag) == wanted) {
            *length = size;
            return p;
        }
        p += size;
    }
    return nullptr;
}

int getPublicKey(const unsigned char* cert, unsigned int len, unsigned char* modulus,
                 unsigned int* modulusLen, unsigned char* exponent, unsigned int* exponentLen)
{
    View modulusBytes;
    View exponentBytes;
    const bool found = findPublicKey({cert, len}, modulusBytes, exponentBytes);
    return found && copyOut(modulusBytes, modulus, modulusLen) &&
                   copyOut(exponentBytes, exponent, exponentLen)
               ? 1
               : 0;
}

bool getPublicKey(const Blob& cert, Blob& modulus, Blob& exponent)
{
    View modulusBytes;
    View exponentBytes;
    if (!findPublicKey({cert.data(), static_cast<unsigned int>(cert.size())}, modulusBytes, exponentBytes))
        return false;
    modulus = Blob(modulusBytes.data, modulusBytes.data + modulusBytes.length);
    exponent = Blob(exponentBytes.data, exponentBytes.data + exponentBytes.length);
    return true;
}

} // namespace PKCS11
