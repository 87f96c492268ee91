/// Hexadecimal text to bytes and back. Commands to cards stand in the code as hexadecimal text and become
/// bytes here, at the point of use.
#pragma once

#include "pkcs11/token/Blob.h"

#include <string>

namespace PKCS11 {

/// The value of two hexadecimal digits of either case. Any other character counts as its code minus that of
/// '0', without an error.
unsigned char PKCS11_hex2char(const char* two);

/// Converts pairs of digits until a pair begins with the terminator; stops at a terminator inside a pair too.
/// `out` must hold half the text's length.
void PKCS11_hex2mem(const char* hex, char* out);

/// The bytes of the text, (length + 1) / 2 of them.
Blob PKCS11_hex2blob(const char* hex);

/// Writes two upper-case digits for each of n bytes, without a terminator; `out` must hold 2 * n characters.
void PKCS11_mem2hex(const char* in, int n, char* out);

/// Two upper-case digits for each byte.
std::string PKCS11_blob2hex(const Blob& bytes);

} // namespace PKCS11
