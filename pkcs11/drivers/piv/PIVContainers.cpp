#include "pkcs11/drivers/piv/PIVContainers.h"

#include "pkcs11/PKCS11Exception.h"
#include "pkcs11/token/BERCoder.h"
#include "pkcs11/token/ByteOrder.h"
#include "pkcs11/token/ByteReader.h"

#include <algorithm>
#include <cstdint>
#include <zlib.h>

namespace PKCS11 {

namespace {

constexpr unsigned char kContainer = 0x53;
constexpr unsigned char kDiscovery = 0x7E;
constexpr int kCertificate = 0x70;
constexpr int kPublicKey = 0x7F49;
constexpr int kLabel = 0x50;
constexpr int kKeyReference = 0x83;

constexpr int kMaxUnpacked = 64 * 1024;

constexpr unsigned char kRSA1024 = 0x06;

/// For the answers that BER decoding refuses, those under the constructed tag 7E among them.
Blob cutByHand(const Blob& answer)
{
    ByteReader reader(answer);
    if (!reader.has(2))
        return {};
    const unsigned char tag = reader.byte();
    if (tag != kContainer && tag != kDiscovery)
        return {};
    int length = reader.byte();
    if (length >= 0x80) {
        const int lengthBytes = length & 0x7F;
        if (!reader.has(lengthBytes))
            return {};
        // Of a longer length only the last two bytes count, and these have a sign.
        std::uint16_t count = 0;
        for (int i = 0; i < lengthBytes; ++i)
            count = static_cast<std::uint16_t>(count << 8 | reader.byte());
        length = static_cast<std::int16_t>(count);
    }
    return reader.take(std::clamp(length, 0, reader.left()));
}

void readTemplate(const Blob& names, PIVPublicInfo& info)
{
    ByteReader reader(names);
    while (const auto part = reader.element()) {
        if (part->tag == kLabel)
            info.label = part->value;
        else if (part->tag == kKeyReference)
            info.id = part->value;
    }
}

bool isGzip(const Blob& bytes)
{
    return bytes.size() > 2 && bytes.at(0) == 0x1F && bytes.at(1) == 0x8B;
}

/// The content of a gzip file (RFC 1952); the bytes as they are when it is none, or too large.
Blob unpack(Blob packed)
{
    z_stream stream{};
    if (inflateInit2(&stream, MAX_WBITS + 16) != Z_OK)
        return packed;
    Blob unpacked(kMaxUnpacked, 0);
    stream.next_in = packed.data();
    stream.avail_in = static_cast<uInt>(packed.size());
    stream.next_out = unpacked.data();
    stream.avail_out = static_cast<uInt>(unpacked.size());
    const int result = inflate(&stream, Z_FINISH);
    const int length = unpacked.size() - static_cast<int>(stream.avail_out);
    inflateEnd(&stream);
    if (result != Z_STREAM_END)
        return packed;
    unpacked.resize(length);
    return unpacked;
}

} // namespace

unsigned short getKeyRef(unsigned char tag, int modulusBits)
{
    for (const PIVContainer& container : kPIVContainers)
        if (container.tag == tag) {
            const int base = container.keyReference << 8 | kRSA1024;
            return static_cast<unsigned short>(modulusBits == 1024 ? base : base + 1);
        }
    return 0;
}

Blob getKeyID(unsigned short word)
{
    return PKCS11_short2blob(word);
}

Blob cutContainer(const Blob& answer)
{
    if (answer.empty())
        return {};
    try {
        BERCoder node;
        node.import(answer, 0);
        if (node.getTag() == kContainer || node.getTag() == kDiscovery)
            return node.getValue();
        return {};
    } catch (const PKCS11Exception&) {
        return cutByHand(answer);
    }
}

PIVPublicInfo readPublicInfo(const Blob& container)
{
    PIVPublicInfo info;
    if (container.size() < 2 || container.at(0) != kCertificate || container.at(1) == 0)
        return info;
    // BERCoder would take the certificate apart, and a compressed one is no BER.
    ByteReader reader(container);
    while (const auto element = reader.element()) {
        if (element->tag == kCertificate && info.certificate.empty())
            info.certificate = element->value;
        else if (element->tag == kPublicKey)
            readTemplate(element->value, info);
        // Certificate information (71), error detection code (FE) and whatever else stands there is dropped:
        // cards differ in how the information tells of compression.
    }
    if (isGzip(info.certificate))
        info.certificate = unpack(info.certificate);
    return info;
}

} // namespace PKCS11
