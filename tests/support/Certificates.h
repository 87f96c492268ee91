/// Certificates that the openssl program issued; the certificate fuzzer starts from them too.
#pragma once

#include "fuzz/Corpus.h"
#include "pkcs11/token/Blob.h"

/// rsa.der: version 3, self-signed, C=NO, O=Fjell og Fjord, CN=Kari Nordmann, serial C1A2B3C4D5E6F708, from
/// 120305101500Z (UTCTime) to 20510607080910Z (GeneralizedTime). By the same issuer: version1.der, an RSA key
/// too, without the version field; ec.der, a P-256 key. compressed.der: a P-256 key with a compressed point.
inline PKCS11::Blob certificate(const char* name)
{
    static const auto certificates = fuzz::readCorpus(QUARVEL_CERTIFICATES);
    const vcard::Bytes& bytes = certificates.at(name);
    return {bytes.data(), bytes.data() + bytes.size()};
}

/// Of rsa.der, as openssl x509 -modulus tells it.
constexpr char kRSAModulus[] = "C0063963CAC14C31A4C61EAB83349CA98813ED4815547F6AC64A33748D94A29A"
                               "FD7ADA10BD2BFDB28C9FCFF0D4CE250910DE7BAB8ECBBFE02C994975F2866229";
