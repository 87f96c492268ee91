#include "pkcs11/frontend/SystemWrapper.h"
#include "pkcs11/pcsc/PCSCSlot.h"
#include "tests/support/CryptokiFixture.h"
#include "tools/vcard/AcosCard.h"

namespace {

class AcosTest : public CryptokiFixture {};

} // namespace

TEST_F(AcosTest, TrustCardIsAskedOnceForAValueAndNotForALength)
{
    ASSERT_NO_FATAL_FAILURE(start(std::make_shared<vcard::AcosTrustCard>("12345")));
    EXPECT_EQ(login("99999"), CKR_PIN_INCORRECT);
    ASSERT_EQ(login("12345"), CKR_OK);
    const CK_OBJECT_HANDLE privateKey = find(CKO_PRIVATE_KEY);
    const CK_OBJECT_HANDLE publicKey = find(CKO_PUBLIC_KEY);
    const CK_OBJECT_HANDLE certificate = find(CKO_CERTIFICATE);
    EXPECT_FALSE(attribute(certificate, CKA_SUBJECT).bytes.empty());
    EXPECT_EQ(attribute(privateKey, CKA_MODULUS).length, 128U);
    fakepcsc::clearCalls();
    attribute(certificate, CKA_VALUE);
    attribute(publicKey, CKA_MODULUS);
    CK_MECHANISM mechanism{CKM_RSA_PKCS, nullptr, 0};
    CK_ULONG length = 0;
    Bytes input(35);
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
        EXPECT_EQ(attribute(find(CKO_PRIVATE_KEY), CKA_MODULUS).bytes,
                  vcard::RsaKey::get(1024, variant).modulus());
        ASSERT_EQ(C_CloseSession(m_session), CKR_OK);
    }
}
