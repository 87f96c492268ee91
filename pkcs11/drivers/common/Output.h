/// The output-length rules of an operation: a null output asks for the length; too little room gives
/// CKR_BUFFER_TOO_SMALL (0x150) with the needed length in place and nothing written.
#pragma once

#include "pkcs11/token/Blob.h"

#include <type_traits>

namespace PKCS11 {

/// True when the output is null: the length has been answered and the call is done. Throws CKR_ARGUMENTS_BAD
/// (7) where there is no place for the length.
bool answersLength(const CK_BYTE* out, CK_ULONG* outLen, int length);

/// The same for a length that costs the card a command: asked for only where the output is null.
template <class Length, class = std::enable_if_t<std::is_invocable_r_v<int, Length>>>
bool answersLength(const CK_BYTE* out, CK_ULONG* outLen, Length length)
{
    return answersLength(out, outLen, out == nullptr ? length() : 0);
}

/// Throws CKR_BUFFER_TOO_SMALL for a result whose size is known before the card is asked.
void requireRoom(CK_ULONG* outLen, int length);

/// Copies the result out within the caller's room and sets the length.
void deliver(const Blob& result, CK_BYTE* out, CK_ULONG* outLen);

/// Collects what an operation works on; throws CKR_DATA_LEN_RANGE (0x21) for more than the limit, in bytes,
/// before anything is read, and CKR_ARGUMENTS_BAD for a null pointer with a length.
Blob inputOf(const CK_BYTE* data, CK_ULONG length, CK_ULONG limit = 0xFFFF);

} // namespace PKCS11
