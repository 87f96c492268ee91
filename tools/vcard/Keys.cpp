#include "tools/vcard/Keys.h"

#include "tools/vcard/Bytes.h"

#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>
#include <stdexcept>
#include <unistd.h>
#include <utility>

namespace vcard {

namespace {

constexpr long kSecondsPerDay = 24L * 60 * 60;

void require(bool done)
{
    if (!done)
        throw std::runtime_error("libcrypto refuses");
}

template <auto Free>
struct Deleter {
    template <class T>
    void operator()(T* thing) const
    {
        Free(thing);
    }
};
using Number = std::unique_ptr<BIGNUM, Deleter<BN_free>>;
using NumberContext = std::unique_ptr<BN_CTX, Deleter<BN_CTX_free>>;
using KeyContext = std::unique_ptr<EVP_PKEY_CTX, Deleter<EVP_PKEY_CTX_free>>;
using Certificate = std::unique_ptr<X509, Deleter<X509_free>>;

Number number(const Bytes& bytes)
{
    return Number(BN_bin2bn(bytes.data(), static_cast<int>(bytes.size()), nullptr));
}

Bytes bytesOf(const BIGNUM* value)
{
    Bytes bytes(static_cast<size_t>(BN_num_bytes(value)));
    BN_bn2bin(value, bytes.data());
    return bytes;
}

Bytes component(const EVP_PKEY* key, const char* name)
{
    BIGNUM* value = nullptr;
    require(EVP_PKEY_get_bn_param(key, name, &value) == 1);
    const Number owned(value);
    return bytesOf(owned.get());
}

/// Sign and decrypt of libcrypto have one shape.
template <class Operation>
Bytes output(Operation operation, EVP_PKEY_CTX* context, const Bytes& input)
{
    size_t length = 0;
    if (operation(context, nullptr, &length, input.data(), input.size()) != 1)
        return {};
    Bytes out(length);
    if (operation(context, out.data(), &length, input.data(), input.size()) != 1)
        return {};
    out.resize(length);
    return out;
}

Bytes selfSigned(EVP_PKEY* key, const std::string& commonName)
{
    const Certificate certificate(X509_new());
    X509_NAME* name = X509_get_subject_name(certificate.get());
    const auto add = [name](const char* field, const std::string& text) {
        require(X509_NAME_add_entry_by_txt(name, field, MBSTRING_UTF8,
                                           reinterpret_cast<const unsigned char*>(text.c_str()), -1, -1,
                                           0) == 1);
    };
    add("O", "Quarvel Virtual Cards");
    add("CN", commonName);
    unsigned char* der = nullptr;
    const Number serial(BN_new());
    require(BN_rand(serial.get(), 63, BN_RAND_TOP_ONE, BN_RAND_BOTTOM_ANY) == 1 &&
            BN_to_ASN1_INTEGER(serial.get(), X509_get_serialNumber(certificate.get())) != nullptr &&
            X509_set_version(certificate.get(), X509_VERSION_3) == 1 &&
            X509_set_issuer_name(certificate.get(), name) == 1 &&
            X509_gmtime_adj(X509_getm_notBefore(certificate.get()), -kSecondsPerDay) != nullptr &&
            X509_gmtime_adj(X509_getm_notAfter(certificate.get()), 365 * kSecondsPerDay) != nullptr &&
            X509_set_pubkey(certificate.get(), key) == 1 &&
            X509_sign(certificate.get(), key, EVP_sha256()) != 0);
    const int length = i2d_X509(certificate.get(), &der);
    require(length > 0);
    Bytes bytes(der, der + length);
    OPENSSL_free(der);
    return bytes;
}

KeyHandle newKey(int bits)
{
    KeyHandle key(EVP_RSA_gen(static_cast<unsigned>(bits)));
    require(key != nullptr);
    return key;
}

/// The key in the file, or a new one that is left there.
KeyHandle keptKey(const std::string& path, int bits)
{
    std::ostringstream content;
    content << std::ifstream(path).rdbuf();
    const Bytes kept = fromText(content.str());
    const unsigned char* at = kept.data();
    if (!kept.empty())
        return KeyHandle(d2i_PrivateKey(EVP_PKEY_RSA, nullptr, &at, static_cast<long>(kept.size())));

    KeyHandle key = newKey(bits);
    unsigned char* der = nullptr;
    const int length = i2d_PrivateKey(key.get(), &der);
    require(length > 0);
    // In one step, as other processes do the same.
    const std::string own = path + "." + std::to_string(getpid());
    std::ofstream(own).write(reinterpret_cast<const char*>(der), length);
    OPENSSL_free(der);
    require(std::rename(own.c_str(), path.c_str()) == 0);
    return key;
}

} // namespace

void FreeKey::operator()(evp_pkey_st* key) const
{
    EVP_PKEY_free(key);
}

const RsaKey& RsaKey::get(int bits, int number)
{
    // Never destroyed: libcrypto may have cleaned up before a static object's destructor runs.
    static auto& keys = *new std::map<std::pair<int, int>, std::unique_ptr<const RsaKey>>;
    auto& key = keys[{bits, number}];
    const char* const folder = std::getenv("QUARVEL_VCARD_KEYS");
    if (!key && folder == nullptr)
        key.reset(new RsaKey(newKey(bits)));
    if (!key)
        key.reset(new RsaKey(keptKey(
            std::string(folder) + "/rsa-" + std::to_string(bits) + "-" + std::to_string(number), bits)));
    return *key;
}

RsaKey::RsaKey(KeyHandle key) : m_key(std::move(key))
{
    require(m_key != nullptr);
    m_modulus = component(m_key.get(), OSSL_PKEY_PARAM_RSA_N);
    m_exponent = component(m_key.get(), OSSL_PKEY_PARAM_RSA_E);
}

Bytes RsaKey::privateOperation(const Bytes& block) const
{
    if (block.size() != size())
        return {};
    const KeyContext context(EVP_PKEY_CTX_new(m_key.get(), nullptr));
    require(EVP_PKEY_decrypt_init(context.get()) == 1 &&
            EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_NO_PADDING) == 1);
    return output(EVP_PKEY_decrypt, context.get(), block);
}

Bytes RsaKey::sign(const Bytes& data) const
{
    const Bytes filler(size() - data.size() - 3, 0xFF);
    return privateOperation(join({{0x00, 0x01}, filler, {0x00}, data}));
}

std::optional<Bytes> RsaKey::decrypt(const Bytes& block) const
{
    const Bytes plain = privateOperation(block);
    if (plain.empty() || plain.at(0) != 0x00 || plain.at(1) != 0x02)
        return std::nullopt;
    const auto end = std::find(plain.begin() + 2, plain.end(), 0x00);
    if (end == plain.end() || end - plain.begin() < static_cast<std::ptrdiff_t>(kMinPadding) - 1)
        return std::nullopt;
    return Bytes(end + 1, plain.end());
}

Bytes RsaKey::publicOperation(const Bytes& modulus, const Bytes& exponent, const Bytes& block)
{
    const Number n = number(modulus);
    const Number e = number(exponent);
    const Number m = number(block);
    if (block.size() != static_cast<size_t>(BN_num_bytes(n.get())) || BN_cmp(m.get(), n.get()) >= 0)
        return {};
    const NumberContext context(BN_CTX_new());
    const Number result(BN_new());
    Bytes out(block.size());
    if (BN_mod_exp(result.get(), m.get(), e.get(), n.get(), context.get()) != 1 ||
        BN_bn2binpad(result.get(), out.data(), static_cast<int>(out.size())) < 0) {
        return {};
    }
    return out;
}

Bytes RsaKey::certificate(const std::string& commonName) const
{
    return selfSigned(m_key.get(), commonName);
}

const EcKey& EcKey::get(const std::string& curve, int number)
{
    static auto& keys = // as in RsaKey::get
        *new std::map<std::pair<std::string, int>, std::unique_ptr<const EcKey>>;
    auto& key = keys[{curve, number}];
    if (!key)
        key.reset(new EcKey(curve));
    return *key;
}

EcKey::EcKey(const std::string& curve) : m_key(EVP_EC_gen(curve.c_str()))
{
    require(m_key != nullptr);
    size_t length = 0;
    require(EVP_PKEY_get_octet_string_param(m_key.get(), OSSL_PKEY_PARAM_PUB_KEY, nullptr, 0, &length) == 1);
    m_point.resize(length);
    require(EVP_PKEY_get_octet_string_param(m_key.get(), OSSL_PKEY_PARAM_PUB_KEY, m_point.data(),
                                            m_point.size(), &length) == 1);
}

Bytes EcKey::sign(const Bytes& hash) const
{
    const KeyContext context(EVP_PKEY_CTX_new(m_key.get(), nullptr));
    require(EVP_PKEY_sign_init(context.get()) == 1);
    return output(EVP_PKEY_sign, context.get(), hash);
}

Bytes EcKey::certificate(const std::string& commonName) const
{
    return selfSigned(m_key.get(), commonName);
}

} // namespace vcard
