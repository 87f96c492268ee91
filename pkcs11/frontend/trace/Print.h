/// Small print helpers of the reader layer, all at level 80. They belong to the interface; nothing in the
/// library calls them.
#pragma once

namespace PKCS11 {

/// Logs `length` characters of the text, 1023 at most.
void PKCS11_PrintStr(const char* text, int length);
/// Logs the text, nothing for null.
void PKCS11_PrintInfo(const char* text);
/// Logs the 32-bit value as 8 upper-case hexadecimal digits.
void PKCS11_PrintInt(int value);
/// Logs the bytes as hexadecimal digits.
void PKCS11_PrintMem(const char* bytes, int length);
/// Writes two upper-case digits, without a terminator.
void PKCS11_char2hex(char byte, char* out);

} // namespace PKCS11
