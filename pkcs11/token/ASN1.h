/// Readers over plain memory for DER (X.690) that is only looked at, and the public key of a certificate.
#pragma once

#include "pkcs11/token/Blob.h"

namespace PKCS11 {

/// Reads one tag and length. Returns 0 and sets *p to the first content byte, cls to the class and
/// constructed bits, tag to the tag number (the bytes of a long one as they stand, 11111 included) and
/// length; a first byte of 00 or FF gives 0 with *p null, the end of the data. Returns -1 with *p null for
/// anything malformed, but takes a length of 80 (indefinite) for 0.
int asn1_read_tag(const unsigned char** p, unsigned int len, unsigned int* cls, unsigned int* tag,
                  unsigned int* length);

/// The contents of the first TLV with the wanted tag among those that follow one another from p, and their
/// length; null when there is none. A long tag number stands below its class byte. Nested TLVs are not
/// entered.
const unsigned char* asn1_find_tag(const unsigned char* p, unsigned int len, unsigned int wanted,
                                   unsigned int* length);

/// The RSA public key of a DER X.509 certificate, with or without the explicit version field; the bytes of
/// the two INTEGERs as encoded, a leading zero kept. On entry *modulusLen and *exponentLen give the room in
/// the buffers. Returns 1 on success, 0 on any failure and for keys that are not RSA. Belongs to the
/// interface; the library calls the other form.
int getPublicKey(const unsigned char* cert, unsigned int len, unsigned char* modulus,
                 unsigned int* modulusLen, unsigned char* exponent, unsigned int* exponentLen);

/// The same into buffers sized by the key.
bool getPublicKey(const Blob& cert, Blob& modulus, Blob& exponent);

} // namespace PKCS11
