/// The checks of a caller's pointers. All throw CKR_ARGUMENTS_BAD (7).
#pragma once

#include "pkcs11/PKCS11Exception.h"

namespace PKCS11 {

inline void requirePointer(const void* pointer)
{
    if (pointer == nullptr)
        throw PKCS11Exception(CKR_ARGUMENTS_BAD);
}

/// A null pointer passes with a length of 0 only.
inline void requireBuffer(const void* pointer, CK_ULONG length)
{
    if (length != 0)
        requirePointer(pointer);
}

} // namespace PKCS11
