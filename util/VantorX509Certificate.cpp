#include "util/VantorX509Certificate.h"

#include "util/CryptoPointer.h"
#include "util/OpenSSLHelpers.h"
#include "util/QuietErrors.h"
#include "util/VantorException.h"

#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

#include <algorithm>
#include <array>
#include <climits>

namespace {

void freeMemory(unsigned char* memory)
{
    OPENSSL_free(memory);
}

using NamePointer = CryptoPointer<X509_NAME, X509_NAME_free>;
using NumberPointer = CryptoPointer<BIGNUM, BN_free>;
using MemoryPointer = CryptoPointer<unsigned char, freeMemory>;

struct KeyType {
    std::uint32_t algorithm;
    CK_KEY_TYPE type;
};
constexpr KeyType kKeyTypes[] = {
    {NID_dsaWithSHA, CKK_DSA},          {NID_dsa_2, CKK_DSA}, {NID_dsaWithSHA1_2, CKK_DSA},
    {NID_dsaWithSHA1, CKK_DSA},         {NID_dsa, CKK_DSA},   {NID_dhKeyAgreement, CKK_DH},
    {NID_X9_62_id_ecPublicKey, CKK_EC},
};

[[noreturn]] void fail(const char* text)
{
    throw VantorException(text, CKR_GENERAL_ERROR);
}

/// A certificate always decodes to some issuer; one without parts stands for a missing one.
bool isMissing(const X509_NAME* name)
{
    return name == nullptr || X509_NAME_entry_count(name) == 0;
}

std::string nameText(const X509_NAME* name, int nid)
{
    std::array<char, 256> text{};
    const int length = X509_NAME_get_text_by_NID(name, nid, text.data(), static_cast<int>(text.size()));
    return length > 0 ? std::string(text.data(), static_cast<std::size_t>(length)) : std::string();
}

NamePointer decodeName(const CK_ATTRIBUTE& value)
{
    const QuietErrors quiet;
    const auto* der = static_cast<const unsigned char*>(value.pValue);
    return NamePointer(d2i_X509_NAME(nullptr, &der, static_cast<long>(value.ulValueLen)));
}

/// The content of the INTEGER as encoded: libcrypto refuses other than minimal ones, so that encoding it
/// again gives the same bytes.
std::vector<unsigned char> serialNumberContent(const ASN1_INTEGER* serial)
{
    unsigned char* encoded = nullptr;
    const int size = i2d_ASN1_INTEGER(serial, &encoded);
    const MemoryPointer owner(encoded);
    if (size < 0)
        OpenSSLHelpers::PrintErrorStack();
    const unsigned char* content = encoded;
    long length = 0;
    int tag = 0;
    int cls = 0;
    if (size <= 0 || (ASN1_get_object(&content, &length, &tag, &cls, size) & 0x80) != 0)
        return {};
    return {content, content + length};
}

/// The type of a key; of one that libcrypto cannot decode the algorithm that the certificate names.
int keyAlgorithm(const X509* cert, const EVP_PKEY* key)
{
    if (key != nullptr)
        return EVP_PKEY_get_base_id(key);
    ASN1_OBJECT* algorithm = nullptr;
    X509_PUBKEY_get0_param(&algorithm, nullptr, nullptr, nullptr, X509_get_X509_PUBKEY(cert));
    return OBJ_obj2nid(algorithm);
}

EVP_PKEY* publicKey(const X509* cert)
{
    const QuietErrors quiet;
    return X509_get0_pubkey(cert);
}

NumberPointer keyNumber(const EVP_PKEY* key, const char* name)
{
    const QuietErrors quiet;
    BIGNUM* number = nullptr;
    EVP_PKEY_get_bn_param(key, name, &number);
    return NumberPointer(number);
}

bool isRSA(const EVP_PKEY* key)
{
    return key != nullptr &&
           (EVP_PKEY_get_base_id(key) == EVP_PKEY_RSA || EVP_PKEY_get_base_id(key) == EVP_PKEY_RSA_PSS);
}

bool sameBytes(const CK_ATTRIBUTE& a, const CK_ATTRIBUTE& b)
{
    const auto* left = static_cast<const unsigned char*>(a.pValue);
    const auto* right = static_cast<const unsigned char*>(b.pValue);
    return std::equal(left, left + a.ulValueLen, right, right + b.ulValueLen);
}

} // namespace

void X509Deleter::operator()(X509* cert) const noexcept
{
    X509_free(cert);
}

VantorX509Certificate::VantorX509Certificate(const CK_ATTRIBUTE& value)
{
    fromSSL_X509(toOpenSSLCertificate(value).get());
}

VantorX509Certificate::VantorX509Certificate(X509* cert, void* label, int labelLength)
{
    fromSSL_X509(cert);
    if (label != nullptr && labelLength > 0)
        SetAttribute(CKA_LABEL, label, static_cast<CK_ULONG>(labelLength));
    SetLabel(m_commonName);
}

VantorX509Certificate::VantorX509Certificate(std::unique_ptr<TokenObject> object)
    : VantorCryptoObject(std::move(object))
{
    LoadKeyAndDates(toOpenSSLCertificate().get());
    LoadCertInfo();
}

void VantorX509Certificate::fromSSL_X509(X509* cert)
{
    if (cert == nullptr)
        fail("VantorX509Certificate::VantorX509Certificate object is not certificate!");

    std::vector<CK_ATTRIBUTE> attributes;
    const auto add = [&attributes](CK_ATTRIBUTE_TYPE type, std::vector<unsigned char>& bytes) {
        attributes.push_back({type, bytes.data(), static_cast<CK_ULONG>(bytes.size())});
    };
    const X509_NAME* subject = X509_get_subject_name(cert);
    // One without parts is a name: the holder may stand in subjectAltName alone (RFC 5280, 4.1.2.6).
    if (subject == nullptr)
        fail("VantorX509Certificate::fromSSL_X509 - invalid X509 certificate: subject is empty");
    attributes.push_back(CreateX509Attribute(CKA_SUBJECT, subject));
    const X509_NAME* issuer = X509_get_issuer_name(cert);
    if (!isMissing(issuer))
        attributes.push_back(CreateX509Attribute(CKA_ISSUER, issuer));
    std::vector<unsigned char> serialNumber = serialNumberContent(X509_get0_serialNumber(cert));
    if (!serialNumber.empty())
        add(CKA_SERIAL_NUMBER, serialNumber);

    unsigned char* encoded = nullptr;
    const int size = i2d_X509(cert, &encoded);
    const MemoryPointer owner(encoded);
    if (size <= 0) {
        OpenSSLHelpers::PrintErrorStack();
        fail("VantorX509Certificate::fromSSL_X509 - decoding X509 certificate failed");
    }
    attributes.push_back({CKA_VALUE, encoded, static_cast<CK_ULONG>(size)});

    LoadKeyAndDates(cert);
    const EVP_PKEY* key = publicKey(cert);
    std::vector<unsigned char> modulus;
    std::vector<unsigned char> exponent;
    if (isRSA(key)) {
        const NumberPointer n = keyNumber(key, OSSL_PKEY_PARAM_RSA_N);
        const NumberPointer e = keyNumber(key, OSSL_PKEY_PARAM_RSA_E);
        if (n && e) {
            attributes.push_back(OpenSSLHelpers::BigToAttr(CKA_MODULUS, n.get(), modulus));
            attributes.push_back(OpenSSLHelpers::BigToAttr(CKA_PUBLIC_EXPONENT, e.get(), exponent));
        }
    }

    m_object = std::make_unique<TokenObject>(CKO_CERTIFICATE, CKC_X_509, attributes);
    LoadCertInfo();
}

void VantorX509Certificate::LoadKeyAndDates(X509* cert)
{
    m_validFrom = getTimeFromASN1(X509_get0_notBefore(cert));
    m_validTo = getTimeFromASN1(X509_get0_notAfter(cert));
    const EVP_PKEY* key = publicKey(cert);
    m_keySize = key == nullptr ? 0 : static_cast<std::uint32_t>(std::max(EVP_PKEY_get_size(key), 0));
    m_keyAlgorithm = static_cast<std::uint32_t>(keyAlgorithm(cert, key));
}

void VantorX509Certificate::LoadCertInfo()
{
    const NamePointer subject = m_object->has(CKA_SUBJECT) ? decodeName(GetSubject()) : nullptr;
    if (!subject)
        return;
    m_subjectText = X509_NAME_toString(subject.get());
    m_organizationName = nameText(subject.get(), NID_organizationName);
    m_commonName = nameText(subject.get(), NID_commonName);
    if (const NamePointer issuer = m_object->has(CKA_ISSUER) ? decodeName(GetIssuer()) : nullptr)
        m_issuerText = nameText(issuer.get(), NID_commonName);
}

CK_ATTRIBUTE VantorX509Certificate::GetSubject() const
{
    return m_object->get(CKA_SUBJECT);
}

CK_ATTRIBUTE VantorX509Certificate::GetIssuer() const
{
    return m_object->get(CKA_ISSUER);
}

CK_ATTRIBUTE VantorX509Certificate::GetSerialNumber() const
{
    return m_object->get(CKA_SERIAL_NUMBER);
}

CK_ATTRIBUTE VantorX509Certificate::GetValue() const
{
    return m_object->get(CKA_VALUE);
}

CK_ATTRIBUTE VantorX509Certificate::GetRSAModulus() const
{
    return m_object->get(CKA_MODULUS);
}

CK_ATTRIBUTE VantorX509Certificate::GetRSAPubicExponent() const
{
    return m_object->get(CKA_PUBLIC_EXPONENT);
}

const unsigned char* VantorX509Certificate::GetEncodedData() const
{
    return static_cast<const unsigned char*>(GetValue().pValue);
}

CK_ULONG VantorX509Certificate::GetEncodedDataSize() const
{
    return GetValue().ulValueLen;
}

CK_KEY_TYPE VantorX509Certificate::GetKeyType() const
{
    for (const KeyType& row : kKeyTypes) {
        if (row.algorithm == m_keyAlgorithm)
            return row.type;
    }
    return CKK_RSA;
}

bool VantorX509Certificate::compare(const VantorX509Certificate& other) const
{
    return sameBytes(GetValue(), other.GetValue());
}

bool VantorX509Certificate::isRootCert() const
{
    if (!m_object->has(CKA_ISSUER) || GetIssuer().ulValueLen == 0)
        return true;
    return sameBytes(GetIssuer(), GetSubject());
}

X509Pointer VantorX509Certificate::toOpenSSLCertificate(const CK_ATTRIBUTE& value)
{
    const auto* der = static_cast<const unsigned char*>(value.pValue);
    X509Pointer cert;
    if (der != nullptr && value.ulValueLen <= LONG_MAX)
        cert.reset(d2i_X509(nullptr, &der, static_cast<long>(value.ulValueLen)));
    if (!cert) {
        OpenSSLHelpers::PrintErrorStack();
        // Its text has always said "SLL".
        fail("VantorX509Certificate::toOpenSSLCertificate failed to create X509 open SLL certificate");
    }
    return cert;
}

X509Pointer VantorX509Certificate::toOpenSSLCertificate() const
{
    if (m_object == nullptr)
        fail("VantorX509Certificate::VantorX509Certificate object is not certificate!");
    return toOpenSSLCertificate(GetValue());
}
