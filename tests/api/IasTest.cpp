#include "tests/support/CryptokiFixture.h"
#include "tests/support/TlvText.h"
#include "tests/support/TraceFile.h"
#include "tools/vcard/IasCard.h"

using vcard::IasCard;

namespace {

class IasTest : public CryptokiFixture {
protected:
    void startIas(const vcard::IasOptions& options = {})
    {
        m_card = std::make_shared<IasCard>(options);
        start(m_card);
    }
    /// With a card that has something else in one file.
    void startWith(unsigned short file, const std::string& content)
    {
        TearDown();
        SetUp();
        m_card = std::make_shared<IasCard>();
        m_card->file(file).content = scripted::bytes(content);
        start(m_card);
    }
    static void answer(const std::string& text, int nth)
    {
        fakepcsc::replaceAnswer(scripted::bytes(text), nth);
    }

    std::shared_ptr<IasCard> m_card;
    /// SEQUENCE { SEQUENCE { sha256, NULL }, OCTET STRING }
    const Bytes m_digestInfo =
        vcard::join({vcard::fromHex("3031300D060960864801650304020105000420"), Bytes(32, 0x5A)});
};

std::string label(const std::string& text)
{
    return seq(text.empty() ? "" : tlv(0x0C, vcard::toHex(vcard::fromText(text))));
}
std::string pin(const std::string& name, const std::string& reference, const std::string& rules = "")
{
    return seq(label(name) + seq("040101") + tlv(0xA1, seq(rules + tlv(0x80, reference))));
}

} // namespace

TEST_F(IasTest, AResetThatNobodyToldOfIsMadeUpFor)
{
    vcard::IasOptions options;
    options.rsaBits = 2048;
    startIas(options);
    EXPECT_EQ(findAll().size(), 5U); // private keys and the secret are hidden
    ASSERT_EQ(login("123456"), CKR_OK);
    EXPECT_EQ(setPin("123456", "7777"), CKR_OK);
    m_card->reset(); // reading shows the PIN again
    EXPECT_EQ(text(find(CKO_DATA, 1), CKA_VALUE), "Only with the PIN.");
    const auto publicKey = publicKeyOf(m_card->certificate(0));
    const CK_OBJECT_HANDLE key = find(CKO_PRIVATE_KEY);
    const Bytes plain = vcard::fromText("a secret");
    m_card->reset(); // the next use selects the application and shows the PIN again
    EXPECT_TRUE(isSignature(publicKey, m_digestInfo, sign(key, CKM_RSA_PKCS, m_digestInfo).bytes));
    EXPECT_EQ(decrypt(key, CKM_RSA_PKCS, encryptFor(publicKey, plain)).bytes, plain);
    EXPECT_EQ(decrypt(key, CKM_RSA_PKCS, Bytes(254)).rv, CKR_DEVICE_ERROR);
    EXPECT_EQ(fakepcsc::sentAPDUs().back().size(), 2U * (5 + 255)); // the longest that is no chain
    answer("6884", 5);                                              // to its first piece
    TraceFile trace;
    EXPECT_EQ(decrypt(key, CKM_RSA_PKCS, Bytes(256)).rv, CKR_DEVICE_ERROR);
    EXPECT_EQ(fakepcsc::sentAPDUs().back().substr(0, 10) + trace.failures(),
              "102A8086FF(|PKCS15MechanismDecrypt::decrypt)");
    EXPECT_EQ(decrypt(find(CKO_PRIVATE_KEY, 1), CKM_RSA_PKCS, plain).rv, CKR_KEY_FUNCTION_NOT_PERMITTED);
}

TEST_F(IasTest, AReadCostsOneTryWhereAnotherProgramHasChangedThePin)
{
    startIas();
    ASSERT_EQ(login("123456"), CKR_OK);
    const CK_OBJECT_HANDLE secret = find(CKO_DATA, 1);
    const std::string select = "00A404040C E828BD080FD2500000040301", from = "313233343536FFFF",
                      to = "37373737FFFFFFFF";
    for (const std::string& command : {select, "0024008110" + from + to})
        m_card->transmit(scripted::bytes(command));
    m_card->reset();
    fakepcsc::clearCalls();
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(attribute(secret, CKA_VALUE).rv, CKR_PIN_INCORRECT);
    const std::vector<std::string> sent = fakepcsc::sentAPDUs();
    EXPECT_EQ(std::count(sent.begin(), sent.end(), "0020008108" + from), 1);
    EXPECT_EQ(C_Logout(m_session) | login("7777"), CKR_OK);
    EXPECT_EQ(text(secret, CKA_VALUE), "Only with the PIN.");
}

TEST_F(IasTest, PinsAreChangedBlockedAndUnblocked)
{
    TraceFile trace;
    startIas();
    EXPECT_EQ(login("123456789"), CKR_PIN_LEN_RANGE);
    EXPECT_EQ(setPin("123456789", "7777"), CKR_PIN_LEN_RANGE);
    EXPECT_EQ(setPin("123456", "123456789"), CKR_PIN_LEN_RANGE);
    EXPECT_EQ(setPin("123456", "7777"), CKR_OK);
    ASSERT_EQ(login("87654321", CKU_SO), CKR_OK);
    for (const auto& [fresh, rv] :
         {std::pair("123456789", CKR_PIN_LEN_RANGE), {"12A4", CKR_DEVICE_ERROR}, {"2468", CKR_OK}}) {
        Bytes bytes = vcard::fromText(fresh);
        EXPECT_EQ(C_InitPIN(m_session, bytes.data(), bytes.size()), rv);
    }
    EXPECT_EQ(trace.failures(),
              "(wrong PIN length|IASToken::VerifyPin)(wrong PIN length|IASToken::VerifyPin)"
              "(wrong PIN length|IASToken::ChangePIN)(wrong PIN length|IASToken::ChangePIN)(|)");
    answer("6984", 3);
    EXPECT_EQ(setPin("87654321", "11112222"), CKR_PIN_LOCKED);
    EXPECT_EQ(setPin("87654321", "11112222"), CKR_OK); // the administrator's own
    EXPECT_EQ(setPin("11112222", "33334444"), CKR_OK);
    EXPECT_EQ(C_Logout(m_session), CKR_OK);
    EXPECT_EQ(login("2468"), CKR_OK);
}

TEST_F(IasTest, AuthenticationObjectsTellUserAndAdministrator)
{
    const std::string noReference = seq(label("x") + seq("") + tlv(0xA1, seq("0401FF")));
    const struct {
        std::string objects, user, administrator; // what is shown to the card
        std::string lengths = "4-10";
    } rows[] = {
        {pin("PIN", "81") + pin("Other", "82") + pin("PUK", "83"), "81 04 31323334", "82 04 31323334"},
        {pin("MY PUK", "82") + pin("", "81"), "81 04 31323334", "82 04 31323334"},
        {pin("SO PIN", "82") + pin("PUK", "83"), "", "82 04 31323334"},
        {noReference + pin("PIN", "81"), "", "81 04 31323334"},
        {tlv(0xA0, label("x") + seq("")) + pin("", "018205"), "82 04 31323334", ""},
        {pin("PIN", "0081", "020105 020108 02010C 0401FF") + pin("PUK", "82"), "81 08 31323334FFFFFFFF",
         "82 08 31323334FFFFFFFF", "5-12"},
        {pin("PIN", "81", "020105 02010C 0401EE"), "81 0C 31323334EEEEEEEEEEEEEEEE", "", "5-10"},
    };
    for (const auto& row : rows) {
        startWith(IasCard::authentication, row.objects);
        const CK_TOKEN_INFO info = tokenInfo();
        EXPECT_EQ(std::to_string(info.ulMinPinLen) + "-" + std::to_string(info.ulMaxPinLen), row.lengths);
        for (const auto& [user, shown] : {std::pair(CKU_USER, row.user), {CKU_SO, row.administrator}}) {
            fakepcsc::clearCalls();
            answer("63C2", 3);
            EXPECT_EQ(login("1234", user), shown.empty() ? CKR_USER_PIN_NOT_INITIALIZED : CKR_PIN_INCORRECT);
            EXPECT_EQ(fakepcsc::callCount("SCardTransmit"), shown.empty() ? 0 : 3);
            if (!shown.empty()) {
                EXPECT_EQ(scripted::bytes(fakepcsc::sentAPDUs().back()), scripted::bytes("002000" + shown));
            }
            fakepcsc::forgetPlans();
        }
    }
}

TEST_F(IasTest, FilesMayHoldOtherThings)
{
    for (const auto& [file, serial] :
         {std::pair("5A03 AABBCC", "AABBCC  "), {"5A04 AABBCC", "\n\v      "}, {"5B01AA", "\n\v      "}}) {
        startWith(0xD003, file);
        const CK_TOKEN_INFO info = tokenInfo();
        EXPECT_EQ(std::string(info.serialNumber, info.serialNumber + 8), serial) << file;
    }
    TraceFile trace;
    startWith(0xB001, "3003020105 FFFF");
    const CK_OBJECT_HANDLE certificate = find(CKO_CERTIFICATE);
    answer("6A82", 3);
    EXPECT_EQ(attribute(certificate, CKA_VALUE).rv, CKR_DEVICE_ERROR);
    EXPECT_EQ(trace.failures(), "(Select File|IASToken::readValue)");
    EXPECT_EQ(attribute(certificate, CKA_VALUE).bytes, vcard::fromHex("3003020105"));
}

TEST_F(IasTest, AKeyWithoutAReferenceNeverStandsForAnother)
{
    startWith(IasCard::privateKeys, seq(label("K") + seq("0401AA") + tlv(0xA1, seq(seq("") + "02020400"))));
    ASSERT_EQ(login("123456"), CKR_OK);
    const CK_OBJECT_HANDLE key = find(CKO_PRIVATE_KEY);
    fakepcsc::clearCalls();
    TraceFile trace;
    EXPECT_EQ(sign(key, CKM_RSA_PKCS, m_digestInfo).rv, CKR_DEVICE_ERROR);
    EXPECT_EQ(decrypt(key, CKM_RSA_PKCS, m_digestInfo).rv, CKR_DEVICE_ERROR);
    EXPECT_EQ(trace.failures(), "(|PKCS15MechanismSign::sign)(|PKCS15MechanismDecrypt::decrypt)");
    EXPECT_TRUE(attribute(key, CKA_MODULUS).bytes.empty());
    EXPECT_EQ(sign(key, CKM_RSA_PKCS, m_digestInfo, 127).length, 128U); // as the record tells
    EXPECT_EQ(fakepcsc::callCount("SCardTransmit"), 0);
}

TEST_F(IasTest, PublicKeysAreCutFromTheAnswer)
{
    const char* const answers[][2] = {{"70810C BFA0018107 7F4904 8102C1C2", "C1C2"},
                                      {"700C BFA00108 7F4905 8102C1C2 82", ""}, // broken off
                                      {"700A BFA00206 7F4903 8101C1", ""},      // another key
                                      {"710B BFA00107 7F4904 8102C1C2", ""},
                                      {"700D BFA00109 8102C1C2 3003 020501", ""},
                                      {"7004 BFA00180", ""}};
    for (const auto& [template_, modulus] : answers) {
        startIas();
        const CK_OBJECT_HANDLE key = find(CKO_PUBLIC_KEY);
        answer(std::string(template_) + "9000", 3);
        EXPECT_EQ(attribute(key, CKA_MODULUS).bytes, scripted::bytes(modulus)) << template_;
        TearDown();
        SetUp();
    }
}

TEST_F(IasTest, KeyRecordsTellTypeUsageAndDays)
{
    const std::pair<unsigned, CK_KEY_TYPE> types[] = {
        {0x30, CKK_RSA}, {0xA0, CKK_EC}, {0xA1, CKK_DH}, {0xA2, CKK_DSA}, {0xA3, CKK_KEA}};
    // The ID, usage, access flags and reference of a key, its first and last day.
    const std::string days = tlv(0x18, "32303235303130325A") + tlv(0xA0, tlv(0x18, "32303330313233315A"));
    std::string records;
    for (const auto& [tag, type] : types)
        records += tlv(tag, label("K") + seq("04010103020102030204B002020091" + days) +
                                tlv(0xA1, seq("300404023F0002020400")));
    startWith(IasCard::publicKeys, records);
    EXPECT_EQ(attribute(find(CKO_PUBLIC_KEY), CKA_MODULUS).bytes, m_card->key(0).modulus());
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
        std::string content;
        size_t objects; ///< before login
        CK_RV login = CKR_OK;
    } cases[] = {{IasCard::tokenInfo, "", 5},
                 {IasCard::odf, "31", 0, CKR_USER_PIN_NOT_INITIALIZED},
                 {IasCard::certificates, std::string(80, '3'), 3},
                 {IasCard::publicKeys, "", 3},
                 {IasCard::privateKeys, std::string(600, 'A'), 5},
                 {IasCard::dataObjects, "0400", 4},
                 {IasCard::authentication, "3080", 5, CKR_USER_PIN_NOT_INITIALIZED}};
    for (const auto& damage : cases) {
        startWith(damage.file, damage.content);
        EXPECT_EQ(findAll().size(), damage.objects) << damage.file;
        EXPECT_EQ(login("123456"), damage.login) << damage.file;
    }
}
