#pragma once

#include "pkcs11/token/Blob.h"

namespace PKCS11 {

/// What the card's algorithms and PKCS#11 want to know of the public key in a certificate.
struct PIVAlgorithm {
    /// Algorithm identifier (SP 800-78-5, table 9), or 0 where PIV has none for the key.
    unsigned char identifier = 0;
    /// Of an EC key: length of a coordinate in bytes, 0 where PIV has no such curve; the DER of its
    /// parameters and of its point as an OCTET STRING, as CKA_EC_PARAMS and CKA_EC_POINT have them.
    int fieldLength = 0;
    Blob ecParameters;
    Blob ecPoint;

    /// Of a DER X.509 certificate; one that libcrypto cannot read tells nothing.
    static PIVAlgorithm of(const Blob& certificate);
};

} // namespace PKCS11
