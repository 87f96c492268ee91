#include "pkcs11/token/MultiTag.h"

#include "pkcs11/PKCS11Exception.h"
#include "pkcs11/token/BERTags.h"

namespace PKCS11 {

namespace {

constexpr unsigned char kNull = 0x05;
constexpr unsigned char kConstructed = 0x20;

} // namespace

MultiTag::MultiTag() : Blob(1, kNull) {}

MultiTag::MultiTag(int tag)
{
    const auto value = static_cast<unsigned int>(tag);
    for (int shift = 24; shift >= 0; shift -= 8) {
        if (value >> shift != 0 || shift == 0)
            push_back(static_cast<unsigned char>(value >> shift));
    }
    ChekTag();
}

MultiTag::MultiTag(const Blob& bytes) : Blob(bytes)
{
    ChekTag();
}

bool MultiTag::IsConstructed() const
{
    return (front() & kConstructed) != 0;
}

bool MultiTag::operator==(int tag) const
{
    return *this == MultiTag(tag);
}

bool MultiTag::operator!=(int tag) const
{
    return !(*this == tag);
}

void MultiTag::ChekTag() const
{
    bool valid = !empty() && ((front() & kLongTag) == kLongTag) == (size() > 1);
    for (int i = 1; valid && i < size(); ++i)
        valid = (((*this)[i] & kMoreFollows) != 0) == (i + 1 < size());
    if (!valid)
        throw PKCS11Exception(CKR_DATA_INVALID);
}

} // namespace PKCS11
