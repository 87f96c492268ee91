#include "pkcs11/drivers/ias/PKCS15CommonKeyAttributes.h"

#include <algorithm>

namespace PKCS11 {

namespace {

using Key = PKCS15CommonKeyAttributes;

constexpr char kError[] = "PKCS15CommonKeyAttributes::Import";

constexpr PKCS15Element<Key> kElements[] = {{&Key::iD, kOctetString},
                                            {&Key::usage, kBitString},
                                            {&Key::accessFlags, kBitString},
                                            {&Key::native, kBoolean},
                                            {&Key::keyReference, kInteger},
                                            {&Key::startDate, kGeneralizedTime},
                                            {&Key::endDate, constructedTag(0), kGeneralizedTime}};

constexpr unsigned char kNonRepudiation = 0x40;

bool hasBits(const Blob& bits, unsigned char flags)
{
    return bits.size() >= 2 && (bits.at(1) & flags) == flags;
}

/// The bit string with the flags of its first byte set or cleared.
Blob withBits(Blob bits, unsigned char flags, bool on)
{
    if (bits.size() < 2) {
        if (!on)
            return bits;
        bits = Blob(2, 0);
        bits.at(0) = 7;
    }
    unsigned char& first = bits.at(1);
    first = static_cast<unsigned char>(on ? first | flags : first & ~flags);
    // A set bit is none of the unused ones, of which there are seven at most.
    bits.at(0) = std::min<unsigned char>(bits.at(0), 7);
    while (bits.size() == 2 && bits.at(0) > 0 && (first & ((1U << bits.at(0)) - 1)) != 0)
        --bits.at(0);
    return bits;
}

} // namespace

PKCS15CommonKeyAttributes::PKCS15CommonKeyAttributes() : PKCS15Record(kError) {}

void PKCS15CommonKeyAttributes::read(const BERCoder& node)
{
    requireSequence(node, kError);
    *this = PKCS15CommonKeyAttributes();
    readElements(node, *this, kElements);
}

BERCoder PKCS15CommonKeyAttributes::node() const
{
    return sequenceOf(*this, kElements);
}

std::optional<unsigned char> PKCS15CommonKeyAttributes::reference() const
{
    return keyReference.empty() ? std::nullopt : std::make_optional(keyReference.back());
}

bool PKCS15CommonKeyAttributes::GetKeyUsage(unsigned char flags) const
{
    return hasBits(usage, flags);
}

bool PKCS15CommonKeyAttributes::GetKeyAccess(unsigned char flags) const
{
    return hasBits(accessFlags, flags);
}

void PKCS15CommonKeyAttributes::SetKeyUsage(unsigned char flags, bool on)
{
    usage = withBits(usage, flags, on);
}

void PKCS15CommonKeyAttributes::SetKeyAccess(unsigned char flags, bool on)
{
    accessFlags = withBits(accessFlags, flags, on);
}

bool PKCS15CommonKeyAttributes::isForNonRepudiation() const
{
    return usage.size() >= 3 && (usage.at(2) & kNonRepudiation) != 0;
}

} // namespace PKCS11
