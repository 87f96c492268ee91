#include "pkcs11/desktop/PIVAlgorithm.h"

#include "pkcs11/token/BERCoder.h"
#include "pkcs11/token/BERTags.h"
#include "util/CryptoPointer.h"
#include "util/CryptoUse.h"
#include "util/QuietErrors.h"

#include <openssl/x509.h>

namespace PKCS11 {

namespace {

struct RsaRow {
    int bits;
    unsigned char identifier;
};
constexpr RsaRow kRsaRows[] = {{1024, 0x06}, {2048, 0x07}, {3072, 0x05}, {4096, 0x16}};

struct CurveRow {
    int nid;
    unsigned char identifier;
    int fieldLength;
};
constexpr CurveRow kCurveRows[] = {{NID_X9_62_prime256v1, 0x11, 32}, {NID_secp384r1, 0x14, 48}};

void readCurve(const ASN1_TYPE& parameters, const Blob& point, PIVAlgorithm& algorithm)
{
    const int length = i2d_ASN1_TYPE(&parameters, nullptr);
    if (length <= 0)
        return;
    algorithm.ecParameters = Blob(length, 0);
    unsigned char* at = algorithm.ecParameters.data();
    i2d_ASN1_TYPE(&parameters, &at);
    BERCoder(kOctetString, point).Export(algorithm.ecPoint);
    const int nid = parameters.type == V_ASN1_OBJECT ? OBJ_obj2nid(parameters.value.object) : NID_undef;
    for (const CurveRow& row : kCurveRows)
        if (row.nid == nid && point.size() == 1 + 2 * row.fieldLength) {
            algorithm.identifier = row.identifier;
            algorithm.fieldLength = row.fieldLength;
        }
}

void readKey(const X509& certificate, PIVAlgorithm& algorithm)
{
    ASN1_OBJECT* type = nullptr;
    const unsigned char* bits = nullptr;
    int length = 0;
    X509_ALGOR* identifier = nullptr;
    if (X509_PUBKEY_get0_param(&type, &bits, &length, &identifier, X509_get_X509_PUBKEY(&certificate)) != 1)
        return;
    if (OBJ_obj2nid(type) == NID_X9_62_id_ecPublicKey && identifier->parameter != nullptr) {
        readCurve(*identifier->parameter, Blob(bits, bits + length), algorithm);
        return;
    }
    const EVP_PKEY* key = X509_get0_pubkey(&certificate);
    for (const RsaRow& row : kRsaRows)
        if (key != nullptr && EVP_PKEY_base_id(key) == EVP_PKEY_RSA && EVP_PKEY_bits(key) == row.bits)
            algorithm.identifier = row.identifier;
}

} // namespace

PIVAlgorithm PIVAlgorithm::of(const Blob& certificate)
{
    const CryptoUse use;
    const QuietErrors quiet;
    PIVAlgorithm algorithm;
    const unsigned char* at = certificate.data();
    const CryptoPointer<X509, X509_free> x509(d2i_X509(nullptr, &at, certificate.size()));
    if (x509 != nullptr)
        readKey(*x509, algorithm);
    quiet.requireMemory();
    return algorithm;
}

} // namespace PKCS11
