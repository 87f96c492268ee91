#include "pkcs11/token/ASN1.h"
#include "util/VantorException.h"
#include "util/VantorX509Certificate.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    PKCS11::Blob in(data, data + size);
    PKCS11::Blob modulus;
    PKCS11::Blob exponent;
    getPublicKey(in, modulus, exponent);
    try {
        const VantorX509Certificate cert({CKA_VALUE, in.data(), static_cast<CK_ULONG>(in.size())});
        cert.isRootCert();
        cert.compare(cert);
    } catch (const VantorException&) {
        return 0;
    }
    return 0;
}
