#include "tests/support/CryptokiFixture.h"
#include "tests/support/TraceFile.h"
#include "tools/vcard/IasCard.h"

#include <winscard.h>

using vcard::IasCard;

namespace {

struct IasTest : CryptokiFixture {
    const std::shared_ptr<IasCard> m_card = std::make_shared<IasCard>(vcard::IasOptions());
};

} // namespace

TEST_F(IasTest, AResetThatNobodyToldOfIsMadeUpFor)
{
    start(m_card);
    EXPECT_EQ(findAll().size(), 5U); // private keys and the secret are hidden
    ASSERT_EQ(login("123456"), CKR_OK);
    EXPECT_EQ(setPin("123456", "7777"), CKR_OK);
    const CK_OBJECT_HANDLE secret = find(CKO_DATA, 1);
    for (const int nth : {3, 4}) { // a refusal is no reason to read the other file of that name
        fakepcsc::clearCalls();
        answer("6F00", nth);
        EXPECT_EQ(attribute(secret, CKA_VALUE).rv, CKR_DEVICE_ERROR);
    }
    m_card->reset(); // reading shows the PIN again
    EXPECT_EQ(text(secret, CKA_VALUE), "Only with the PIN.");
    const auto publicKey = publicKeyOf(m_card->certificate(0));
    const CK_OBJECT_HANDLE key = find(CKO_PRIVATE_KEY);
    const Bytes plain = vcard::fromText("a secret");
    m_card->reset(); // the next use selects the application and shows the PIN again
    EXPECT_TRUE(isSignature(publicKey, m_digestInfo, sign(key, CKM_RSA_PKCS, m_digestInfo).bytes));
    EXPECT_EQ(decrypt(key, CKM_RSA_PKCS, encryptFor(publicKey, plain)).bytes, plain);
    answer("6884", 5); // to the first piece of a chain
    TraceFile trace;
    EXPECT_EQ(decrypt(key, CKM_RSA_PKCS, Bytes(256)).rv, CKR_DEVICE_ERROR);
    EXPECT_EQ(fakepcsc::sentAPDUs().back().substr(0, 10) + trace.failures(),
              "102A8086FF(|PKCS15MechanismDecrypt::decrypt)");
    EXPECT_EQ(decrypt(find(CKO_PRIVATE_KEY, 1), CKM_RSA_PKCS, plain).rv, CKR_KEY_FUNCTION_NOT_PERMITTED);
}

TEST_F(IasTest, AReadCostsOneTryWhereAnotherProgramHasChangedThePin)
{
    start(m_card);
    ASSERT_EQ(login("123456"), CKR_OK);
    const CK_OBJECT_HANDLE secret = find(CKO_DATA, 1), key = find(CKO_PRIVATE_KEY);
    const std::string select = "00A404040C E828BD080FD2500000040301", from = "313233343536FFFF",
                      to = "37373737FFFFFFFF";
    for (const std::string& command : {select, "0024008110" + from + to})
        m_card->transmit(bytes(command));
    m_card->reset();
    fakepcsc::clearCalls();
    EXPECT_EQ(attribute(secret, CKA_VALUE).rv, CKR_PIN_INCORRECT);
    const auto then = [](CK_RV rv) { return isDesktop() ? CKR_USER_NOT_LOGGED_IN : rv; }; // the login ends
    for (int i = 0; i < 3; ++i) {
        fakepcsc::failCall("SCardTransmit", SCARD_F_COMM_ERROR, 2); // before it sees the PIN
        EXPECT_EQ(sign(key, CKM_RSA_PKCS, m_digestInfo).rv, then(CKR_GENERAL_ERROR));
        fakepcsc::forgetPlans();
        EXPECT_EQ(attribute(secret, CKA_VALUE).rv, then(CKR_PIN_INCORRECT));
    }
    const std::vector<std::string> sent = fakepcsc::sentAPDUs();
    EXPECT_EQ(std::count(sent.begin(), sent.end(), "0020008108" + from), 1);
    for (const CK_RV rv : {CKR_PIN_INCORRECT, CKR_PIN_INCORRECT, CKR_PIN_LOCKED})
        EXPECT_EQ(sign(key, CKM_RSA_PKCS, m_digestInfo).rv, then(rv));
    EXPECT_EQ(attribute(secret, CKA_VALUE).rv, then(CKR_PIN_LOCKED));
    EXPECT_EQ(C_Logout(m_session), then(CKR_OK));
    EXPECT_EQ(login("87654321", CKU_SO), CKR_OK);
    EXPECT_EQ(initPin("7777"), CKR_OK);
    EXPECT_EQ(all({C_Logout(m_session), login("7777")}), CKR_OK);
    m_card->reset(); // that PIN was not refused
    EXPECT_EQ(text(secret, CKA_VALUE), "Only with the PIN.");
}

TEST_F(IasTest, APublicKeyWithoutAReferenceHasThatOfItsId)
{
    for (const std::string id : {"040101", ""}) {
        SetUp();
        const std::string type = " A1(30(30(04023F00) 02020400))";
        m_card->file(0x4403).content = bytes("30(30(0C('K')) 30(" + id + " 02020081)" + type + ")");
        m_card->file(0x4404).content = bytes("30(30(0C('K')) 30(" + id + ")" + type + ")");
        start(m_card);
        EXPECT_EQ(attribute(find(CKO_PUBLIC_KEY), CKA_MODULUS).length, id.empty() ? 0 : 256) << id;
        TearDown();
    }
}

TEST_F(IasTest, PinsThatAreNotPaddedFitIntoTheirCommand)
{
    m_card->file(0x4401).content = bytes("30(30() 30(040101) A1(30(80(81))))");
    start(m_card);
    EXPECT_EQ(setPin("123456\xFF\xFF", std::string(248, '1')), CKR_PIN_LEN_RANGE);
}

TEST_F(IasTest, PinsAreChangedBlockedAndUnblocked)
{
    start(m_card);
    EXPECT_EQ(setPin("123456", "7777"), CKR_OK);
    ASSERT_EQ(login("87654321", CKU_SO), CKR_OK);
    for (const auto& [fresh, rv] : {std::pair("12A4", CKR_DEVICE_ERROR), {"1357", CKR_OK}, {"2468", CKR_OK}})
        EXPECT_EQ(initPin(fresh), rv);
    answer("6984", 3);
    EXPECT_EQ(setPin("87654321", "11112222"), CKR_PIN_LOCKED);
    EXPECT_EQ(setPin("87654321", "11112222"), CKR_OK); // the administrator's own
    EXPECT_EQ(setPin("11112222", "33334444"), CKR_OK);
    EXPECT_EQ(initPin("2468"), CKR_OK); // shows the new one
    EXPECT_EQ(C_Logout(m_session), CKR_OK);
    EXPECT_EQ(login("2468"), CKR_OK);
    answer("6984", 3); // refuses that PIN as 6983 does
    EXPECT_EQ(sign(find(CKO_PRIVATE_KEY), CKM_RSA_PKCS, m_digestInfo).rv, CKR_PIN_LOCKED);
    EXPECT_EQ(sign(find(CKO_PRIVATE_KEY), CKM_RSA_PKCS, m_digestInfo).rv,
              isDesktop() ? CKR_OBJECT_HANDLE_INVALID : CKR_OK);
}
