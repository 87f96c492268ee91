#pragma once

#include "pkcs11/Cryptoki.h"
#include "util/VantorCryptoObject.h"

#include <cstdint>
#include <memory>
#include <string>

struct x509_st;

struct X509Deleter {
    void operator()(x509_st* cert) const noexcept;
};
/// A libcrypto certificate and its owner.
using X509Pointer = std::unique_ptr<x509_st, X509Deleter>;

/// The PKCS#11 attributes and some readable texts of an X.509 certificate, decoded with libcrypto. All
/// libcrypto objects are gone when a call returns. The library builds one from a value and reads its
/// attribute store; the rest belongs to the interface and has no caller here.
///
/// Every failure throws VantorException with CKR_GENERAL_ERROR (5).
class VantorX509Certificate : public VantorCryptoObject {
public:
    /// Decodes a DER certificate.
    explicit VantorX509Certificate(const CK_ATTRIBUTE& value);
    /// Loads from a decoded certificate, which stays the caller's. The label is stored and then replaced by
    /// the subject's common name.
    VantorX509Certificate(x509_st* cert, void* label, int labelLength);
    /// Wraps an existing attribute store and takes it over.
    explicit VantorX509Certificate(std::unique_ptr<TokenObject> object);

    // The stored attributes; their memory lives as long as the certificate object. Throw for an attribute
    // that was not stored.
    CK_ATTRIBUTE GetSubject() const;
    CK_ATTRIBUTE GetIssuer() const;
    CK_ATTRIBUTE GetSerialNumber() const;
    CK_ATTRIBUTE GetValue() const;
    CK_ATTRIBUTE GetRSAModulus() const;
    CK_ATTRIBUTE GetRSAPubicExponent() const;
    const unsigned char* GetEncodedData() const;
    CK_ULONG GetEncodedDataSize() const;

    // Readable texts; empty where the certificate has none.

    /// The subject name in OpenSSL's one-line form.
    std::string GetSubjectStr() const { return m_subjectText; }
    /// The issuer's common name only.
    std::string GetIssuerStr() const { return m_issuerText; }
    std::string GetOrganizationName() const { return m_organizationName; }
    std::string GetCommonName() const { return m_commonName; }
    /// Both dates as getTimeFromASN1 writes them.
    std::string GetValidFromStr() const { return m_validFrom; }
    std::string GetValidToStr() const { return m_validTo; }
    /// Size of the public key in bytes, as EVP_PKEY_get_size tells it.
    std::uint32_t GetKeySize() const { return m_keySize; }
    /// CKK_ value of the public key; CKK_RSA for every algorithm that is not known.
    CK_KEY_TYPE GetKeyType() const;

    /// True when both values are equal.
    bool compare(const VantorX509Certificate& other) const;
    /// True when there is no issuer, or when it equals the subject byte for byte.
    bool isRootCert() const;

    /// Decodes a DER certificate, or the object's own.
    static X509Pointer toOpenSSLCertificate(const CK_ATTRIBUTE& value);
    X509Pointer toOpenSSLCertificate() const;

private:
    void fromSSL_X509(x509_st* cert);
    void LoadKeyAndDates(x509_st* cert);
    void LoadCertInfo();

    std::string m_subjectText;
    std::string m_issuerText;
    std::string m_organizationName;
    std::string m_commonName;
    std::string m_validFrom;
    std::string m_validTo;
    std::uint32_t m_keySize = 0;
    std::uint32_t m_keyAlgorithm = 0;
};
