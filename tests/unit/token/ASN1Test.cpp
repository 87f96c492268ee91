#include "pkcs11/token/ASN1.h"
#include "tests/support/ByteText.h"
#include "tests/support/Certificates.h"
#include "tests/support/Failure.h"

using namespace PKCS11;

namespace {

Blob find(const Blob& in, unsigned int tag)
{
    unsigned int length = 0;
    const unsigned char* p = asn1_find_tag(in.data(), static_cast<unsigned int>(in.size()), tag, &length);
    return p == nullptr ? Blob("none") : Blob(p, p + length);
}

} // namespace

TEST(ASN1Test, SiblingsAreFoundWithinTheirMemory)
{
    const Blob in = hex("30030201059F8182038200015502017700000401AA");
    EXPECT_EQ(find(in, 0x9F818203), hex("55"));
    EXPECT_EQ(find(in, 0x02), hex("77"));
    EXPECT_EQ(find(in, 0x04), Blob("none"));
    EXPECT_EQ(find(hex("FF01000401AA"), 0x04), Blob("none"));
    EXPECT_EQ(find(hex("9F81828301AA"), 0x9F818283), Blob("none")); // a number of more than three bytes
    for (const char* bad : {"04", "0402AA", "048200", "048401000000", "04850000000000"})
        EXPECT_EQ(find(hex(bad), hex(bad)[0]), Blob("none")) << bad;
}

TEST(PublicKeyTest, ComesOutOfRSACertificatesOnly)
{
    Blob modulus;
    Blob exponent;
    ASSERT_TRUE(getPublicKey(certificate("version1.der") + hex("0000"), modulus, exponent));
    EXPECT_EQ(PKCS11_blob2hex(modulus + exponent).substr(0, 14), "00CD09257E2EB6");
    EXPECT_FALSE(getPublicKey(certificate("ec.der"), modulus, exponent));
    const Blob cert = certificate("rsa.der");
    for (int length = 0; length < cert.size(); ++length)
        EXPECT_FALSE(getPublicKey(cert.slice(0, length), modulus, exponent));
    for (const auto& [part, other] : {std::pair("3048024100C0", "31"), {"0203010001", "0201010500"}}) {
        std::string foreign = PKCS11_blob2hex(cert);
        foreign.replace(foreign.find(part), std::string(other).size(), other);
        EXPECT_FALSE(getPublicKey(hex(foreign), modulus, exponent)) << other;
    }

    unsigned char buffers[65 + 3];
    const auto get = [&](unsigned int m, unsigned int e) {
        return getPublicKey(cert.data(), static_cast<unsigned int>(cert.size()), buffers, &m, buffers + 65,
                            &e);
    };
    EXPECT_EQ(get(65, 3), 1);
    EXPECT_EQ(Blob(buffers, buffers + 68), hex("00") + hex(kRSAModulus) + hex("010001"));
    EXPECT_EQ(get(64, 3), 0);
    EXPECT_EQ(get(65, 2), 0);
}
