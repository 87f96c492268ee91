/// First tag bytes of BER (X.690): the universal types that cards and certificates use, context-specific
/// tags, and the bits of tags and lengths.
#pragma once

namespace PKCS11 {

constexpr unsigned char kBoolean = 0x01;
constexpr unsigned char kInteger = 0x02;
constexpr unsigned char kBitString = 0x03;
constexpr unsigned char kOctetString = 0x04;
constexpr unsigned char kObjectIdentifier = 0x06;
constexpr unsigned char kEnumerated = 0x0A;
constexpr unsigned char kUTF8String = 0x0C;
constexpr unsigned char kPrintableString = 0x13;
constexpr unsigned char kGeneralizedTime = 0x18;
constexpr unsigned char kSequence = 0x30;
constexpr unsigned char kSet = 0x31;

/// The low bits of a first tag byte that is followed by others; in those, the bit that says that one more
/// follows.
constexpr unsigned char kLongTag = 0x1F;
constexpr unsigned char kMoreFollows = 0x80;
/// First length byte of the long form: the low bits count the bytes after it; 0 is the indefinite form.
constexpr unsigned char kLongLength = 0x80;
constexpr int kMaxLengthBytes = 4;

/// [n] of a primitive and of a constructed element; n is below 31.
constexpr unsigned char contextTag(unsigned char n)
{
    return static_cast<unsigned char>(0x80 | n);
}
constexpr unsigned char constructedTag(unsigned char n)
{
    return static_cast<unsigned char>(0xA0 | n);
}

} // namespace PKCS11
