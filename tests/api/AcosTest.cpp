#include "pkcs11/frontend/SystemWrapper.h"
#include "pkcs11/pcsc/PCSCSlot.h"
#include "tests/support/CryptokiFixture.h"
#include "tools/vcard/AcosCard.h"

namespace {

class AcosTest : public CryptokiFixture {};

} // namespace

TEST_F(AcosTest, TrustCardSignsDecryptsAndEncryptsForLibcrypto)
{
    ASSERT_NO_FATAL_FAILURE(start(std::make_shared<vcard::AcosTrustCard>("12345")));
    EXPECT_EQ(login("99999"), CKR_PIN_INCORRECT);
    ASSERT_EQ(login("12345"), CKR_OK);
    ASSERT_EQ(setPin("12345", "777"), CKR_OK);

    const CK_OBJECT_HANDLE privateKey = find(CKO_PRIVATE_KEY);
    const CK_OBJECT_HANDLE publicKey = find(CKO_PUBLIC_KEY);
    const CK_OBJECT_HANDLE certificate = find(CKO_CERTIFICATE);
    const auto key = publicKeyOf(attribute(certificate, CKA_VALUE).bytes);
    ASSERT_NE(key, nullptr);
    EXPECT_EQ(attribute(privateKey, CKA_MODULUS).bytes, vcard::RsaKey::get(1024).modulus());
    EXPECT_EQ(attribute(privateKey, CKA_PRIME_1).rv, CKR_ATTRIBUTE_TYPE_INVALID);
    EXPECT_FALSE(attribute(certificate, CKA_SUBJECT).bytes.empty());

    const Bytes data(35, 0x5A);
    const Outcome signature = sign(privateKey, CKM_RSA_PKCS, data);
    ASSERT_EQ(signature.rv, CKR_OK);
    EXPECT_TRUE(isSignature(key, data, signature.bytes));
    EXPECT_EQ(decrypt(privateKey, CKM_RSA_PKCS, encryptFor(key, data)).bytes, data);
    const Outcome encrypted = encrypt(publicKey, CKM_RSA_PKCS, data);
    ASSERT_EQ(encrypted.rv, CKR_OK);
    EXPECT_EQ(decrypt(privateKey, CKM_RSA_PKCS, encrypted.bytes).bytes, data);

    // The values that were read stay; a question for a length is answered without the card.
    fakepcsc::clearCalls();
    attribute(certificate, CKA_VALUE);
    attribute(publicKey, CKA_MODULUS);
    CK_MECHANISM mechanism{CKM_RSA_PKCS, nullptr, 0};
    CK_ULONG length = 0;
    Bytes input = data;
    ASSERT_EQ(C_SignInit(m_session, &mechanism, privateKey), CKR_OK);
    ASSERT_EQ(C_Sign(m_session, input.data(), input.size(), nullptr, &length), CKR_OK);
    EXPECT_EQ(length, 256U);
    EXPECT_TRUE(fakepcsc::sentAPDUs().empty());
}

TEST_F(AcosTest, EducationCardShowsWhatItsVariantChooses)
{
    m_reader = fakepcsc::addReader("Reader 0");
    fakepcsc::insertCard(m_reader, std::make_shared<vcard::AcosEduCard>("1234"));
    ASSERT_EQ(C_Initialize(nullptr), CKR_OK);
    ASSERT_EQ(open(), CKR_OK);
    EXPECT_EQ(findAll().size(), 3U); // data objects only
    ASSERT_EQ(C_CloseSession(m_session), CKR_OK);

    for (const int variant : {1, 2}) {
        dynamic_cast<PKCS11::PCSCSlot&>(*wrapper.slots()->getSlot(1)).setEduVariant(variant);
        fakepcsc::insertCard(m_reader, std::make_shared<vcard::AcosEduCard>("1234"));
        ASSERT_EQ(open(), CKR_OK);
        ASSERT_EQ(login("1234"), CKR_OK);
        const CK_OBJECT_HANDLE privateKey = find(CKO_PRIVATE_KEY);
        const auto key = publicKeyOf(attribute(find(CKO_CERTIFICATE), CKA_VALUE).bytes);
        const Bytes data(35, 0x5A);
        EXPECT_TRUE(isSignature(key, data, sign(privateKey, CKM_RSA_PKCS, data).bytes)) << variant;
        EXPECT_EQ(decrypt(privateKey, CKM_RSA_PKCS, encryptFor(key, data)).bytes, data);
        EXPECT_EQ(attribute(privateKey, CKA_MODULUS).bytes, vcard::RsaKey::get(1024, variant).modulus());
        ASSERT_EQ(C_CloseSession(m_session), CKR_OK);
    }
}
