#include "pkcs11/token/Hex.h"
#include "tests/support/Certificates.h"
#include "util/OpenSSLHelpers.h"
#include "util/VantorException.h"
#include "util/VantorX509Certificate.h"

#include <gtest/gtest.h>
#include <openssl/asn1.h>
#include <openssl/err.h>
#include <openssl/x509.h>

namespace {

std::string bytes(const CK_ATTRIBUTE& attribute)
{
    const auto* first = static_cast<const unsigned char*>(attribute.pValue);
    return PKCS11::PKCS11_blob2hex({first, first + attribute.ulValueLen});
}

VantorX509Certificate load(PKCS11::Blob der)
{
    return VantorX509Certificate({CKA_VALUE, der.data(), static_cast<CK_ULONG>(der.size())});
}

} // namespace

TEST(CertificateTest, GivesAttributesAndTexts)
{
    const VantorX509Certificate cert = load(certificate("rsa.der") + PKCS11::Blob(2, 0xFF));
    EXPECT_EQ(bytes(cert.GetSubject()), PKCS11::PKCS11_blob2hex(certificate("rsa.der").slice(39, 64)));
    EXPECT_EQ(bytes(cert.GetIssuer()), bytes(cert.GetSubject()));
    EXPECT_EQ(bytes(cert.GetSerialNumber()), "00C1A2B3C4D5E6F708");
    EXPECT_EQ(PKCS11::Blob(cert.GetEncodedData(), cert.GetEncodedData() + cert.GetEncodedDataSize()),
              certificate("rsa.der"));
    EXPECT_EQ(bytes(cert.GetRSAModulus()), kRSAModulus);
    EXPECT_EQ(bytes(cert.GetRSAPubicExponent()), "010001");
    EXPECT_EQ(cert.GetSubjectStr() + "|" + cert.GetIssuerStr() + "|" + cert.GetCommonName() + "|" +
                  cert.GetOrganizationName() + "|" + cert.GetValidFromStr() + "|" + cert.GetValidToStr(),
              "/C=NO/O=Fjell og Fjord/CN=Kari Nordmann|Kari Nordmann|Kari Nordmann|Fjell og Fjord|5/3/12|"
              "6/51/20");
    EXPECT_EQ(cert.GetKeySize(), 64U);
    EXPECT_TRUE(cert.isRootCert() && cert.compare(load(certificate("rsa.der"))));

    const VantorX509Certificate other = load(certificate("ec.der"));
    EXPECT_EQ(other.GetKeyType(), CKK_EC);
    EXPECT_FALSE(other.isRootCert() || other.compare(cert));
    EXPECT_THROW(other.GetRSAModulus(), VantorException);
    EXPECT_EQ(load(certificate("compressed.der")).GetIssuerStr(), "Compressed"); // of one part
    PKCS11::Blob foreign = certificate("ec.der"); // on no curve that libcrypto knows
    foreign.at(152 + 7) = 0x77;
    EXPECT_EQ(load(foreign).GetKeyType() + load(foreign).GetKeySize(), CKK_EC);
    EXPECT_EQ(ERR_peek_error(), 0U);
}

TEST(CertificateTest, NamesMayBeMissingAndOtherBytesAreRefused)
{
    const X509Pointer ssl = load(certificate("rsa.der")).toOpenSSLCertificate();
    X509_NAME* const empty = X509_NAME_new();
    X509_set_issuer_name(ssl.get(), empty);
    char label[] = "given";
    const VantorX509Certificate cert(ssl.get(), label, 5);
    EXPECT_TRUE(cert.isRootCert());
    EXPECT_THROW(cert.GetIssuer(), VantorException);
    EXPECT_EQ(cert.GetLabel(), "Kari Nordmann");
    const X509Pointer nameless = load(certificate("rsa.der")).toOpenSSLCertificate();
    X509_set_subject_name(nameless.get(), empty);
    X509_NAME_free(empty);
    const VantorX509Certificate holder(nameless.get(), nullptr, 0);
    EXPECT_EQ(bytes(holder.GetSubject()) + bytes(holder.GetSerialNumber()), "300000C1A2B3C4D5E6F708");
    EXPECT_EQ(bytes(holder.GetIssuer()), bytes(load(certificate("rsa.der")).GetIssuer()));
    EXPECT_FALSE(holder.isRootCert());
    try {
        load(certificate("rsa.der").slice(0, 200));
        ADD_FAILURE();
    } catch (const VantorException& e) {
        EXPECT_EQ(std::to_string(e.GetCryptokiError()) + e.what(),
                  "5VantorX509Certificate::toOpenSSLCertificate failed to create X509 open SLL certificate");
    }
    EXPECT_EQ(ERR_peek_error(), 0U);
}

TEST(CertificateTest, DatesAreReadAsTheyAlwaysWere)
{
    const auto date = [](int type, const char* text) {
        const std::shared_ptr<ASN1_STRING> time(ASN1_STRING_type_new(type), ASN1_STRING_free);
        ASN1_STRING_set(time.get(), text, -1);
        return getTimeFromASN1(time.get()) + ",";
    };
    std::string dates;
    for (const char* text :
         {"1203051015Z", "1203051015+0100", "1203051015-0100-", "120305101500.5Z", "1203051015",
          "120305101500", "120305101500+01000", "12x305101500Z", "120305101500."})
        dates += date(V_ASN1_UTCTIME, text);
    for (const char* text : {"20510607080910.123Z", "205106070809"})
        dates += date(V_ASN1_GENERALIZEDTIME, text);
    EXPECT_EQ(dates, "5/3/12,5/3/12,5/3/12,5/3/12,,,,,,6/51/20,,");
}
