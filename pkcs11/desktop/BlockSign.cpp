// RSA_padding_add_PKCS1_PSS_mgf1 and the key that it measures: libcrypto calls them deprecated, and offers
// nothing else that pads for a key that somebody else holds.
#define OPENSSL_SUPPRESS_DEPRECATED
#include "pkcs11/desktop/BlockSign.h"

#include "pkcs11/PKCS11Exception.h"
#include "pkcs11/drivers/common/Output.h"
#include "pkcs11/drivers/common/PKCS1.h"
#include "pkcs11/token/ByteOrder.h"
#include "util/CryptoPointer.h"
#include "util/CryptoUse.h"
#include "util/QuietErrors.h"

#include <cstring>
#include <openssl/bn.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>

namespace PKCS11 {

namespace {

/// 00, block type, eight bytes of filler, 00.
constexpr int kLeastPadding = 11;

struct Hash {
    CK_MECHANISM_TYPE mechanism;
    CK_ULONG mask;
    const EVP_MD* (*digest)();
};
constexpr Hash kHashes[] = {
    {CKM_SHA_1, CKG_MGF1_SHA1, &EVP_sha1},      {CKM_SHA224, CKG_MGF1_SHA224, &EVP_sha224},
    {CKM_SHA256, CKG_MGF1_SHA256, &EVP_sha256}, {CKM_SHA384, CKG_MGF1_SHA384, &EVP_sha384},
    {CKM_SHA512, CKG_MGF1_SHA512, &EVP_sha512},
};

/// The digest of the row that has the value; null when there is none.
const EVP_MD* digestWith(CK_ULONG Hash::*member, CK_ULONG value)
{
    for (const Hash& hash : kHashes)
        if (hash.*member == value)
            return hash.digest();
    return nullptr;
}

/// Bytes of the encoded message: the block is one bit shorter than the modulus, which begins with a set bit
/// in its first byte.
int encodedLength(const Blob& modulus)
{
    return modulus.front() == 1 ? modulus.size() - 1 : modulus.size();
}

/// A public key of this modulus; the padding looks at nothing else.
CryptoPointer<RSA, RSA_free> keyOf(const Blob& modulus)
{
    CryptoPointer<RSA, RSA_free> key(RSA_new());
    CryptoPointer<BIGNUM, BN_free> number(BN_bin2bn(modulus.data(), modulus.size(), nullptr));
    CryptoPointer<BIGNUM, BN_free> exponent(BN_new());
    if (key == nullptr || number == nullptr || exponent == nullptr ||
        RSA_set0_key(key.get(), number.get(), exponent.get(), nullptr) != 1)
        throw PKCS11Exception(CKR_HOST_MEMORY);
    static_cast<void>(number.release()); // the key holds them now
    static_cast<void>(exponent.release());
    return key;
}

} // namespace

BlockSign::BlockSign(std::unique_ptr<Mechanism> raw, const Blob& modulus)
    : m_raw(std::move(raw)), m_modulus(stripLeadingZeros(modulus))
{
    if (m_modulus.empty())
        throw PKCS11Exception(CKR_DEVICE_ERROR, "", "BlockSign::BlockSign");
}

void BlockSign::sign(CK_BYTE* data, CK_ULONG dataLen, CK_BYTE* out, CK_ULONG* outLen)
{
    if (answersLength(out, outLen, size()))
        return;
    Blob built = block(inputOf(data, dataLen));
    m_raw->sign(built.data(), static_cast<CK_ULONG>(built.size()), out, outLen);
    if (*outLen == 0)
        throw PKCS11Exception(CKR_DEVICE_ERROR, "", "BlockSign::sign");
}

Blob RawSign::block(const Blob& data) const
{
    if (data.size() > size())
        throw PKCS11Exception(CKR_DATA_LEN_RANGE, "", "RawSign::block");
    return Blob(size() - data.size(), 0x00) + data;
}

Blob PKCS1Sign::block(const Blob& data) const
{
    if (data.size() > size() - kLeastPadding)
        throw PKCS11Exception(CKR_DATA_LEN_RANGE, "", "PKCS1Sign::block");
    return makePKCS1Block(0x01, data, size());
}

PSSSign::PSSSign(std::unique_ptr<Mechanism> raw, const Blob& modulus, const CK_MECHANISM& mechanism)
    : BlockSign(std::move(raw), modulus)
{
    constexpr char kWhere[] = "PSSSign::PSSSign";
    CK_RSA_PKCS_PSS_PARAMS parameters{};
    if (mechanism.pParameter == nullptr || mechanism.ulParameterLen != sizeof parameters)
        throw PKCS11Exception(CKR_MECHANISM_PARAM_INVALID, "no parameters of PSS", kWhere);
    std::memcpy(&parameters, mechanism.pParameter, sizeof parameters);

    m_hash = digestWith(&Hash::mechanism, parameters.hashAlg);
    m_maskHash = digestWith(&Hash::mask, parameters.mgf);
    if (m_hash == nullptr || m_maskHash == nullptr)
        throw PKCS11Exception(CKR_MECHANISM_PARAM_INVALID, "unknown hash", kWhere);
    const int room = encodedLength(this->modulus()) - EVP_MD_size(m_hash) - 2;
    if (room < 0 || parameters.sLen > static_cast<CK_ULONG>(room))
        throw PKCS11Exception(CKR_MECHANISM_PARAM_INVALID, "no room for the salt", kWhere);
    m_saltLength = static_cast<int>(parameters.sLen);
}

Blob PSSSign::block(const Blob& hash) const
{
    if (hash.size() != EVP_MD_size(m_hash))
        throw PKCS11Exception(CKR_DATA_LEN_RANGE, "", "PSSSign::block");
    const CryptoUse use;
    const QuietErrors quiet;
    Blob padded(size(), 0x00);
    if (RSA_padding_add_PKCS1_PSS_mgf1(keyOf(modulus()).get(), padded.data(), hash.data(), m_hash, m_maskHash,
                                       m_saltLength) != 1)
        throw PKCS11Exception(CKR_FUNCTION_FAILED, "libcrypto refuses the padding", "PSSSign::block");
    return padded;
}

} // namespace PKCS11
