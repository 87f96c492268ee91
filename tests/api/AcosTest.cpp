#include "tests/support/CryptokiFixture.h"
#include "tests/support/Families.h"
#include "tools/vcard/AcosCard.h"

using AcosTest = CryptokiFixture;

TEST_F(AcosTest, TrustSelectsAgainAfterItsMemoryWasAskedForAndTakesANewPin)
{
    start(std::make_shared<vcard::AcosTrustCard>("12345"));
    EXPECT_EQ(tokenInfo().ulFreePrivateMemory, 0x1234U);
    fakepcsc::clearCalls(); // asking left the MF selected
    EXPECT_EQ(encrypt(find(CKO_PUBLIC_KEY), CKM_RSA_PKCS, {1}).length, 128U);
    EXPECT_EQ(fakepcsc::sentAPDUs().at(0), "00A4040007A000000118454E");
    ASSERT_EQ(login("12345"), CKR_OK);
    EXPECT_EQ(setPin("12345", "4444"), CKR_OK);
    const Bytes message =
        encryptFor(publicKeyOf(vcard::RsaKey::get(1024).certificate("Any")), vcard::fromText("a secret"));
    EXPECT_EQ(decrypt(find(CKO_PRIVATE_KEY), CKM_RSA_PKCS, message).bytes, vcard::fromText("a secret"));
}

TEST_F(AcosTest, EducationCardsDoWithoutAModulusAndReadARecord)
{
    m_reader = fakepcsc::addReader("Reader 0");
    ASSERT_EQ(C_Initialize(nullptr), CKR_OK);
    setEduVariant(1);
    fakepcsc::insertCard(m_reader, std::make_shared<vcard::AcosEduCard>("1234"));
    answer("C1C2 6A82", 5);                        // the public key is refused
    answer("300B04014C0402415004023100 9000", 17); // the certificate: a record of label and ID
    ASSERT_EQ(all({open(), login("1234")}), CKR_OK);
    EXPECT_EQ(text(find(CKO_CERTIFICATE), CKA_ID), "AP");
    EXPECT_EQ(attribute(find(CKO_PUBLIC_KEY), CKA_MODULUS).bytes, Bytes());
    EXPECT_EQ(attribute(find(CKO_PUBLIC_KEY), CKA_PUBLIC_EXPONENT).bytes, Bytes({1, 0, 1}));
}
