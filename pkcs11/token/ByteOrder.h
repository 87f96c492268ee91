/// Integers to bytes and back. Most significant byte first unless a name says otherwise; a "long" is 4 bytes
/// here whatever the host.
#pragma once

#include "pkcs11/token/Blob.h"

namespace PKCS11 {

/// 4 bytes.
Blob long2blob(unsigned long value);
/// The inverse; throws CKR_DATA_INVALID (0x20) unless the size is exactly 4.
unsigned long blob2long(const Blob& bytes);
/// 2 bytes.
Blob PKCS11_short2blob(unsigned short value);
/// The value of 1, 2 or 4 bytes; 0 for any other size.
int PKCS11_blob2int(const Blob& bytes);
/// Puts the two bytes of the value at that position. Throws CKR_BUFFER_TOO_SMALL (0x150) past the end.
void putShort(Blob& bytes, int position, unsigned short value);

// Numbers of any length.

Blob stripLeadingZeros(const Blob& bytes);
/// The bytes without one leading zero, as a DER INTEGER has it.
Blob stripSignByte(const Blob& bytes);
/// What files of a fixed size are filled up with.
Blob stripTrailingZeros(const Blob& bytes);

// Belong to the interface; nothing in the library calls them.

/// Reads 4 bytes.
long PKCS11_mem2long(const char* bytes);
/// Writes 4 bytes.
void PKCS11_long2mem(long value, char* bytes);
/// The first 4 bytes, least significant first; throws CKR_BUFFER_TOO_SMALL (0x150) for fewer.
unsigned long PKCS11_memLI2long(const Blob& bytes);

} // namespace PKCS11
