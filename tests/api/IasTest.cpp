#include "tests/support/CryptokiFixture.h"
#include "tools/vcard/IasCard.h"

using vcard::IasCard;
using vcard::tlv;

namespace {

class IasTest : public CryptokiFixture {
protected:
    void startIas(const vcard::IasOptions& options = {})
    {
        m_card = std::make_shared<IasCard>(options);
        start(m_card);
    }
    void restart()
    {
        TearDown();
        SetUp();
    }
    std::shared_ptr<IasCard> m_card;
    /// SEQUENCE { SEQUENCE { sha256, NULL }, OCTET STRING }
    const Bytes m_digestInfo =
        vcard::join({vcard::fromHex("3031300D060960864801650304020105000420"), Bytes(32, 0x5A)});
};

} // namespace

TEST_F(IasTest, AResetThatNobodyToldOfIsMadeUpFor)
{
    vcard::IasOptions options;
    options.rsaBits = 2048;
    startIas(options);
    EXPECT_EQ(findAll().size(), 5U); // private keys and the secret are hidden
    ASSERT_EQ(login("123456"), CKR_OK);
    m_card->reset(); // reading shows the PIN again
    EXPECT_EQ(text(find(CKO_DATA, 1), CKA_VALUE), "Only with the PIN.");
    const auto publicKey = publicKeyOf(m_card->certificate(0));
    const CK_OBJECT_HANDLE key = find(CKO_PRIVATE_KEY);
    const Bytes plain = vcard::fromText("a secret");
    m_card->reset(); // the next use selects the application and shows the PIN again
    EXPECT_TRUE(isSignature(publicKey, m_digestInfo, sign(key, CKM_RSA_PKCS, m_digestInfo).bytes));
    EXPECT_EQ(decrypt(key, CKM_RSA_PKCS, encryptFor(publicKey, plain)).bytes, plain);
    EXPECT_EQ(decrypt(find(CKO_PRIVATE_KEY, 1), CKM_RSA_PKCS, plain).rv, CKR_KEY_FUNCTION_NOT_PERMITTED);
}

TEST_F(IasTest, PinsAreChangedBlockedAndUnblocked)
{
    startIas();
    EXPECT_EQ(setPin("123456", "7777"), CKR_OK);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(login("123456"), CKR_PIN_INCORRECT);
    EXPECT_EQ(login("7777"), CKR_PIN_LOCKED);
    ASSERT_EQ(login("87654321", CKU_SO), CKR_OK);
    Bytes fresh = vcard::fromText("2468");
    EXPECT_EQ(C_InitPIN(m_session, fresh.data(), fresh.size()), CKR_OK);
    EXPECT_EQ(setPin("87654321", "11112222"), CKR_OK); // the administrator's own
    EXPECT_EQ(C_Logout(m_session), CKR_OK);
    EXPECT_EQ(login("2468"), CKR_OK);
}

TEST_F(IasTest, KeyRecordsTellTypeUsageAndDays)
{
    const std::pair<unsigned, CK_KEY_TYPE> types[] = {
        {0x30, CKK_RSA}, {0xA0, CKK_EC}, {0xA1, CKK_DH}, {0xA2, CKK_DSA}, {0xA3, CKK_KEA}};
    // The ID, usage, access flags and reference of a key; its first and last day; the value's path and
    // length.
    const Bytes days = vcard::join(
        {tlv(0x18, vcard::fromText("20250102Z")), tlv(0xA0, tlv(0x18, vcard::fromText("20301231Z")))});
    const Bytes common = tlv(0x30, tlv(0x0C, vcard::fromText("K")));
    const Bytes attributes = tlv(0x30, vcard::join({vcard::fromHex("04010103020102030204B002020081"), days}));
    const Bytes value = tlv(0xA1, tlv(0x30, vcard::fromHex("300404023F0002020400")));
    m_card = std::make_shared<IasCard>();
    Bytes& records = m_card->file(IasCard::publicKeys).content;
    records.clear();
    for (const auto& [tag, type] : types)
        records = vcard::join({records, tlv(tag, vcard::join({common, attributes, value}))});
    start(m_card);
    for (size_t i = 0; i < std::size(types); ++i) {
        const CK_OBJECT_HANDLE key = find(CKO_PUBLIC_KEY, i);
        EXPECT_EQ(number(key, CKA_KEY_TYPE), types[i].second) << i;
        EXPECT_EQ(text(key, CKA_START_DATE) + text(key, CKA_END_DATE), "2025010220301231") << i;
    }
}

TEST_F(IasTest, DamagedFilesCostTheirObjectsOnly)
{
    const struct {
        unsigned short file;
        Bytes content;
        size_t objects; ///< before login
        CK_RV login;
    } cases[] = {{IasCard::tokenInfo, {}, 5, CKR_OK},
                 {IasCard::odf, {0x31}, 0, CKR_USER_PIN_NOT_INITIALIZED},
                 {IasCard::certificates, Bytes(40, 0x30), 3, CKR_OK},
                 {IasCard::publicKeys, {}, 3, CKR_OK},
                 {IasCard::privateKeys, Bytes(300, 0xA0), 5, CKR_OK},
                 {IasCard::dataObjects, {0x04, 0x00}, 4, CKR_OK},
                 {IasCard::authentication, {0x30, 0x80}, 5, CKR_USER_PIN_NOT_INITIALIZED}};
    for (const auto& damage : cases) {
        m_card = std::make_shared<IasCard>();
        m_card->file(damage.file).content = damage.content;
        start(m_card);
        EXPECT_EQ(findAll().size(), damage.objects) << damage.file;
        EXPECT_EQ(login("123456"), damage.login) << damage.file;
        restart();
    }
}
