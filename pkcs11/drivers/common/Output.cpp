#include "pkcs11/drivers/common/Output.h"

#include "pkcs11/PKCS11Exception.h"

#include <algorithm>

namespace PKCS11 {

bool answersLength(const CK_BYTE* out, CK_ULONG* outLen, int length)
{
    if (outLen == nullptr)
        throw PKCS11Exception(CKR_ARGUMENTS_BAD);
    if (out != nullptr)
        return false;
    *outLen = static_cast<CK_ULONG>(length);
    return true;
}

void requireRoom(CK_ULONG* outLen, int length)
{
    const auto needed = static_cast<CK_ULONG>(length);
    if (*outLen >= needed)
        return;
    *outLen = needed;
    throw PKCS11Exception(CKR_BUFFER_TOO_SMALL);
}

void deliver(const Blob& result, CK_BYTE* out, CK_ULONG* outLen)
{
    if (answersLength(out, outLen, result.size()))
        return;
    requireRoom(outLen, result.size());
    std::copy(result.begin(), result.end(), out);
    *outLen = static_cast<CK_ULONG>(result.size());
}

Blob inputOf(const CK_BYTE* data, CK_ULONG length, CK_ULONG limit)
{
    if (length > limit)
        throw PKCS11Exception(CKR_DATA_LEN_RANGE);
    return Blob::fromMemory(data, length);
}

} // namespace PKCS11
