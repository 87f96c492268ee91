// Single DES has no place in libcrypto's current interface without the legacy provider.
#define OPENSSL_SUPPRESS_DEPRECATED

#include "pkcs11/token/Framing.h"

#include "pkcs11/PKCS11Exception.h"
#include "pkcs11/token/BERCoder.h"
#include "pkcs11/token/BERTags.h"
#include "pkcs11/token/ByteOrder.h"

#include <openssl/des.h>

#include <algorithm>
#include <array>

namespace PKCS11 {

namespace {

constexpr int kMaxExtendedData = 0xFFFF;
constexpr std::array<unsigned char, 8> kMACKey = {0x5A, 0x17, 0xC3, 0xE0, 0x8B, 0x4D, 0x2F, 0x96};

bool isWantedTag(unsigned char tag)
{
    return tag == kSequence || (tag & 0xF0) == 0xA0;
}

/// Size of the TLV object at pos, header included; 0 when it is not whole. The length is not indefinite.
int wholeTLVSize(const Blob& in, int pos)
{
    const int left = in.size() - pos - 2;
    int length = in.at(pos + 1);
    int extra = 0;
    if (length > 0x80) {
        extra = length & 0x7F;
        if (extra > left)
            return 0;
        length = 0;
        for (int i = 0; i < extra; ++i) {
            if (length > in.size() >> 8)
                return 0;
            length = length << 8 | in.at(pos + 2 + i);
        }
    }
    return length <= left - extra ? 2 + extra + length : 0;
}

} // namespace

Blob MakeBERCoded(int tag, const Blob& value)
{
    Blob result = MultiTag(tag);
    return std::move(result.append(BERCoder::encodedLength(value.size())).append(value));
}

Blob MakeTLVCoded(const Blob& in)
{
    if (std::all_of(in.begin(), in.end(), [](unsigned char byte) { return byte == 0; }))
        return {};
    int pos = 0;
    while (in.size() - pos >= 2 && isWantedTag(in.at(pos))) {
        if (in.at(pos + 1) == 0x80)
            return in;
        const int size = wholeTLVSize(in, pos);
        if (size == 0)
            break;
        pos += size;
    }
    return in.slice(0, pos);
}

void MakeTagLen(const Blob& in, std::vector<TagLen>& out)
{
    for (int pos = 1; pos < in.size(); pos += 2) {
        const Blob tag(1, in.at(pos - 1));
        int length = in.at(pos);
        if (length == 0xFF) {
            if (in.size() - pos <= 2)
                return;
            length = in.at(pos + 1) | in.at(pos + 2) << 8;
            pos += 2;
        }
        out.push_back({tag, static_cast<unsigned short>(length)});
    }
}

Blob GetShortAPDU(const Blob& header, const Blob& data)
{
    Blob apdu;
    apdu.reserve(header.size() + data.size() + 2);
    apdu.append(header).push_back(static_cast<unsigned char>(data.size() & 0xFF));
    return std::move(apdu.append(data));
}

Blob GetExtendedAPDU(const Blob& header, const Blob& data, unsigned short le)
{
    if (data.size() > kMaxExtendedData)
        throw PKCS11Exception(CKR_DATA_LEN_RANGE);
    Blob apdu;
    apdu.reserve(header.size() + data.size() + 5);
    apdu.append(header).push_back(0x00);
    if (!data.empty())
        apdu.append(PKCS11_short2blob(static_cast<unsigned short>(data.size()))).append(data);
    return std::move(apdu.append(PKCS11_short2blob(le)));
}

Blob GetMAC(const Blob& in)
{
    if (in.empty())
        return {static_cast<int>(kMACKey.size()), 0};
    DES_cblock chaining;
    std::copy(kMACKey.begin(), kMACKey.end(), chaining);
    DES_key_schedule schedule;
    DES_set_key_unchecked(&chaining, &schedule);
    for (int i = 0; i < in.size(); ++i) {
        chaining[i % 8] ^= in[i];
        if (i % 8 == 7 || i + 1 == in.size())
            DES_ecb_encrypt(&chaining, &chaining, &schedule, DES_ENCRYPT);
    }
    cleanse(&schedule, sizeof schedule);
    return {chaining, chaining + sizeof chaining};
}

} // namespace PKCS11
