#pragma once

#include "tools/vcard/Card.h"

#include <memory>
#include <optional>
#include <string>

struct evp_pkey_st;

namespace vcard {

/// 00, block type, eight bytes, 00 (PKCS#1 v1.5).
constexpr size_t kMinPadding = 11;

struct FreeKey {
    void operator()(evp_pkey_st* key) const;
};
using KeyHandle = std::unique_ptr<evp_pkey_st, FreeKey>;

/// An RSA key pair of libcrypto. Making one is slow, so each size and number is made once in a process, when
/// it is first asked for, and lives until the end of it. Where the environment variable QUARVEL_VCARD_KEYS
/// names a folder, later processes take it from there: they are keys for tests, no secrets.
class RsaKey {
public:
    static const RsaKey& get(int bits, int number = 0);

    /// Length of modulus, blocks and results, in bytes.
    size_t size() const { return m_modulus.size(); }
    /// Big endian, without leading zeros.
    const Bytes& modulus() const { return m_modulus; }
    const Bytes& exponent() const { return m_exponent; }
    /// block ^ d mod n, no padding added or checked. Empty unless the block has size() bytes and is below the
    /// modulus.
    Bytes privateOperation(const Bytes& block) const;
    /// The signature over data of at most size() - kMinPadding bytes, padded by PKCS#1 v1.5 (type 1).
    Bytes sign(const Bytes& data) const;
    /// What a PKCS#1 v1.5 encryption block (00 02, at least eight bytes of padding, 00) holds, decrypted;
    /// none for any other block.
    std::optional<Bytes> decrypt(const Bytes& block) const;
    /// privateOperation() with any public key: block ^ e mod n. Empty on the same conditions.
    static Bytes publicOperation(const Bytes& modulus, const Bytes& exponent, const Bytes& block);
    /// A self-signed X.509 certificate (SHA-256), DER.
    Bytes certificate(const std::string& commonName) const;

private:
    explicit RsaKey(KeyHandle key);

    KeyHandle m_key;
    Bytes m_modulus;
    Bytes m_exponent;
};

/// An EC key pair on a curve that libcrypto knows by its NIST name ("P-256"); see RsaKey.
class EcKey {
public:
    static const EcKey& get(const std::string& curve, int number = 0);

    /// The uncompressed point: 04, x, y.
    const Bytes& point() const { return m_point; }
    /// Length of a coordinate in bytes.
    size_t size() const { return m_point.size() / 2; }
    /// ECDSA over a hash as it is given: the DER SEQUENCE of r and s.
    Bytes sign(const Bytes& hash) const;
    Bytes certificate(const std::string& commonName) const;

private:
    explicit EcKey(const std::string& curve);

    KeyHandle m_key;
    Bytes m_point;
};

} // namespace vcard
