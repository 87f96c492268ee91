/// Numbers to the names that the trace shows. A number without a name gives an empty text, except where said.
#pragma once

#include "pkcs11/Cryptoki.h"

#include <string>

namespace PKCS11 {

/// The name padded with blanks to 31 characters, with the exceptions in the table; "CKM_VENDOR_DEFINED" for a
/// number without a name.
std::string mechanism2string(unsigned long type);
/// Without memory of its own.
const char* rvName(unsigned long rv) noexcept;
std::string attributeType2string_ne(unsigned long type);
std::string objectClass2string_ne(unsigned long objectClass);
/// Names without prefix, as "RSA".
std::string keyType2string_ne(unsigned long type);
std::string certificateType2string_ne(unsigned long type);
std::string sessionState2string_ne(unsigned long state);
std::string bbool2string(unsigned char value);
std::string version2string(CK_VERSION version);
/// The low 32 bits as a signed decimal number, as "%i" prints them.
std::string number2string(unsigned long value);

/// Two lower-case digits a byte; "wrong datalen" for more than 4096 bytes.
std::string byte2hex(const unsigned char* bytes, unsigned long length);
/// The bytes as characters; "wrong datalen" for more than 4096 bytes.
std::string byte2string(const unsigned char* bytes, unsigned long length);
/// The value as text by its type, or a mask for values that must not be shown; never reads past ulValueLen.
std::string attributevalue2string_ne(CK_ATTRIBUTE attribute);

/// The names of the set flags, each between prefix and suffix, the last suffix left out.
std::string sessionFlag2string(unsigned long flags, const std::string& prefix, const std::string& suffix);
std::string tokenFlag2string(unsigned long flags, const std::string& prefix, const std::string& suffix);
std::string slotFlag2string(unsigned long flags, const std::string& prefix, const std::string& suffix);
std::string mechanismFlag2string(unsigned long flags, const std::string& prefix, const std::string& suffix);

// Belong to the interface; nothing in the library calls them.

std::string rv2string_ne(unsigned long rv);
std::string sessionUsertype2string_ne(unsigned long userType);
/// Two lower-case digits.
std::string byte2hex(unsigned char byte);

} // namespace PKCS11
