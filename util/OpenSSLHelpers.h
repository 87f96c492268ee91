/// What the certificate class needs around libcrypto: errors to the trace, names, numbers and dates.
#pragma once

#include "pkcs11/Cryptoki.h"

#include <string>
#include <vector>

struct X509_name_st;
struct asn1_string_st;
struct bignum_st;

namespace OpenSSLHelpers {

/// Empties the thread's libcrypto error queue into the trace, one failure line for each error. Throws
/// std::bad_alloc when memory was short: then the failure says nothing about the value.
void PrintErrorStack();

/// The number, big endian and of minimal length, as an attribute that points into `storage`. Throws
/// VantorException (5) when libcrypto writes another size than it told.
CK_ATTRIBUTE BigToAttr(CK_ATTRIBUTE_TYPE type, const bignum_st* number, std::vector<unsigned char>& storage);

} // namespace OpenSSLHelpers

/// OpenSSL's one-line form of the name, at most 999 characters; empty for no name.
std::string X509_NAME_toString(const X509_name_st* name);

/// An attribute that points at the name's DER encoding, which belongs to the name.
CK_ATTRIBUTE CreateX509Attribute(CK_ATTRIBUTE_TYPE type, const X509_name_st* name);

/// "day/month/year" without leading zeros and with two year digits, from a UTCTime (X.680, 47). Of a
/// GeneralizedTime the same positions are read, which gives "month/last two year digits/first two year
/// digits". Empty for a malformed time.
std::string getTimeFromASN1(const asn1_string_st* time);
