#include "tests/support/CryptokiFixture.h"
#include "tools/vcard/CardOSCard.h"

namespace {

/// Cards before V5.0 (false) and of V5.0 (true), through the C_ functions.
class CardOSTest : public CryptokiFixture, public ::testing::WithParamInterface<bool> {
protected:
    void SetUp() override
    {
        CryptokiFixture::SetUp();
        vcard::CardOSOptions options;
        options.isV50 = GetParam();
        m_card = std::make_shared<vcard::CardOSCard>(options);
    }
    void begin()
    {
        ASSERT_NO_FATAL_FAILURE(start(m_card));
        ASSERT_EQ(login("123456"), CKR_OK);
    }

    std::shared_ptr<vcard::CardOSCard> m_card;
    const Bytes m_data = vcard::fromText("a message of some bytes");
};

TEST_P(CardOSTest, ASearchReadsOnlyWhatDecides)
{
    begin();
    fakepcsc::clearCalls();
    CK_OBJECT_CLASS certificates = CKO_CERTIFICATE;
    CK_ULONG bits = 8;
    Bytes other(1);
    Bytes value = m_card->certificate();
    const CK_ATTRIBUTE valueEntry{CKA_VALUE, value.data(), value.size()};
    const CK_ATTRIBUTE labelEntry{CKA_LABEL, other.data(), other.size()};
    // Another entry differs; no object knows both; the same entry twice.
    EXPECT_TRUE(findAll({valueEntry, labelEntry}).empty());
    EXPECT_TRUE(findAll({valueEntry, {CKA_MODULUS_BITS, &bits, sizeof bits}}).empty());
    EXPECT_TRUE(findAll({valueEntry, valueEntry}).empty());
    for (const CK_ATTRIBUTE_TYPE type :
         {CKA_MODULUS, CKA_PUBLIC_EXPONENT, CKA_SUBJECT, CKA_ISSUER, CKA_SERIAL_NUMBER})
        EXPECT_TRUE(findAll({{type, nullptr, 0}, labelEntry}).empty());
    EXPECT_TRUE(fakepcsc::sentAPDUs().empty());
    EXPECT_EQ(findAll({valueEntry, {CKA_CLASS, &certificates, sizeof certificates}}).size(), 1);
    EXPECT_EQ(fakepcsc::sentAPDUs().size(), 3 + value.size() / 241 + 1); // one file
}

TEST_P(CardOSTest, ResultsStandUpToLibcrypto)
{
    begin();
    const auto publicKey = publicKeyOf(m_card->certificate());
    const CK_OBJECT_HANDLE mine = find(CKO_PRIVATE_KEY);
    const CK_OBJECT_HANDLE theirs = find(CKO_PUBLIC_KEY);
    EXPECT_EQ(attribute(find(CKO_DATA), CKA_VALUE).bytes, Bytes(300, 0x2A));
    const Bytes signature = sign(mine, CKM_RSA_PKCS, m_data).bytes;
    EXPECT_EQ(verify(theirs, CKM_RSA_PKCS, vcard::fromText("another"), signature), CKR_SIGNATURE_INVALID);
    EXPECT_EQ(verify(theirs, CKM_RSA_X_509, m_data, sign(mine, CKM_RSA_X_509, m_data).bytes), CKR_OK);
    EXPECT_EQ(setPin("123456", "7777"), CKR_OK);
    // Selection and PIN are lost, as after a reset that PC/SC does not tell of.
    m_card->reset();
    EXPECT_EQ(decrypt(mine, CKM_RSA_PKCS, encryptFor(publicKey, m_data)).bytes, m_data);
    const Bytes block = vcard::join({Bytes(m_card->key().size() - m_data.size()), m_data});
    EXPECT_EQ(decrypt(mine, CKM_RSA_X_509, encryptFor(publicKey, block, RSA_NO_PADDING)).bytes,
              GetParam() ? block : m_data);
}

TEST_P(CardOSTest, OddAndDamagedFiles)
{
    // The key type in four bytes, the least significant first; a directory that ends within its third entry.
    Bytes& record = m_card->file(0x0101).content;
    record.at(record.size() - 4) = CKK_EC;
    m_card->file(0x0001).content.resize(17);
    begin();
    EXPECT_EQ(findAll().size(), 2);
    EXPECT_EQ(number(find(CKO_PRIVATE_KEY), CKA_KEY_TYPE), CKK_EC);
    EXPECT_EQ(attribute(find(CKO_PRIVATE_KEY), CKA_MODULUS).length, 0);
    // A record that breaks off costs the token.
    m_card->file(0x0102).content.resize(5);
    fakepcsc::insertCard(m_reader, m_card);
    CK_TOKEN_INFO info{};
    EXPECT_EQ(C_GetTokenInfo(1, &info), CKR_TOKEN_NOT_RECOGNIZED);
}

INSTANTIATE_TEST_SUITE_P(Generations, CardOSTest, ::testing::Bool());

} // namespace
