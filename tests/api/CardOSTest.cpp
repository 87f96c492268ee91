#include "tests/support/CryptokiFixture.h"
#include "tools/vcard/CardOSCard.h"

#include <winscard.h>

namespace {

/// Cards before V5.0 (false) and of V5.0 (true), through the C_ functions.
class CardOSTest : public CryptokiFixture, public ::testing::WithParamInterface<bool> {
protected:
    void begin()
    {
        start(m_card);
        ASSERT_EQ(login("123456"), CKR_OK);
    }
    std::shared_ptr<vcard::CardOSCard> m_card =
        std::make_shared<vcard::CardOSCard>(vcard::CardOSOptions{GetParam()});
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
    EXPECT_EQ(attribute(find(CKO_DATA), CKA_VALUE).bytes, Bytes(300, 0x2A));
}

TEST_P(CardOSTest, ResultsStandUpToLibcrypto)
{
    begin();
    const auto publicKey = publicKeyOf(m_card->certificate());
    const CK_OBJECT_HANDLE mine = find(CKO_PRIVATE_KEY);
    const CK_OBJECT_HANDLE theirs = find(CKO_PUBLIC_KEY);
    EXPECT_EQ(verify(theirs, CKM_RSA_X_509, m_data, sign(mine, CKM_RSA_X_509, m_data).bytes), CKR_OK);
    const Bytes block = vcard::join({Bytes(m_card->key().size() - m_data.size()), m_data});
    EXPECT_EQ(decrypt(mine, CKM_RSA_X_509, encryptFor(publicKey, block, RSA_NO_PADDING)).bytes,
              GetParam() ? block : m_data);
    fakepcsc::clearCalls();
    EXPECT_EQ(encrypt(theirs, CKM_RSA_X_509, block, 1).rv, CKR_BUFFER_TOO_SMALL);
    EXPECT_EQ(fakepcsc::sentAPDUs().empty(), !GetParam()); // V5.0 computes first
    const Bytes encrypted = encrypt(theirs, CKM_RSA_PKCS, m_data).bytes;
    const std::vector<std::string> sent = fakepcsc::sentAPDUs();
    EXPECT_EQ(m_card->key().privateOperation(encrypted).at(1), 0x02);
    EXPECT_EQ(decrypt(mine, CKM_RSA_PKCS, encrypted).bytes, m_data);
    EXPECT_EQ(std::count(sent.begin(), sent.end(),
                         "00DA016E1F83022102850801000C0FFFFF0000860801010101010101018F050400010001") > 0,
              !GetParam());
}

TEST_P(CardOSTest, WhatACallerSetStaysAndAccessIsAskedFor)
{
    start(m_card);
    CK_BYTE three = 3; // what was set before the card was read stays
    CK_ATTRIBUTE exponent{CKA_PUBLIC_EXPONENT, &three, 1};
    EXPECT_EQ(C_SetAttributeValue(m_session, find(CKO_PUBLIC_KEY), &exponent, 1), CKR_OK);
    EXPECT_EQ(attribute(find(CKO_PUBLIC_KEY), CKA_MODULUS).bytes, m_card->key().modulus());
    EXPECT_EQ(attribute(find(CKO_PUBLIC_KEY), CKA_PUBLIC_EXPONENT).bytes, Bytes{3});
    EXPECT_EQ(encrypt(find(CKO_PUBLIC_KEY), CKM_RSA_PKCS, m_data).rv,
              GetParam() ? CKR_OK : CKR_USER_NOT_LOGGED_IN);
    // A refused removal ends nothing.
    CK_MECHANISM rsa{CKM_RSA_PKCS, nullptr, 0};
    EXPECT_EQ(C_EncryptInit(m_session, &rsa, find(CKO_PUBLIC_KEY)), CKR_OK);
    EXPECT_EQ(C_DestroyObject(m_session, find(CKO_PUBLIC_KEY)), CKR_USER_NOT_LOGGED_IN);
    EXPECT_EQ(C_EncryptInit(m_session, &rsa, find(CKO_PUBLIC_KEY)), CKR_OPERATION_ACTIVE);
    // The administrator's new PIN is shown from then on.
    ASSERT_EQ(all({login("12345678", CKU_SO), setPin("12345678", "87654321")}), CKR_OK);
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(initPin("7777"), CKR_OK);
    Bytes room(256);
    CK_ULONG length = room.size(); // and is no user
    EXPECT_EQ(C_Encrypt(m_session, room.data(), 9, room.data(), &length),
              GetParam() ? CKR_OK : CKR_USER_NOT_LOGGED_IN);
}

TEST_P(CardOSTest, ABlockThatIsNoSignatureIsRefused)
{
    begin();
    attribute(find(CKO_PUBLIC_KEY), CKA_MODULUS);
    const std::string start = "000001FFFFFFFFFFFFFFFFFFFFFF00";
    const struct {
        CK_MECHANISM_TYPE type;
        std::string data;
        CK_RV rv;
        std::vector<std::string> blocks; ///< that the card computes
    } rows[] = {
        {CKM_RSA_PKCS, "AABB", CKR_OK, {start + "AABB"}},
        {CKM_RSA_PKCS,
         "AABB",
         CKR_SIGNATURE_INVALID,
         {start, start + "AA", start + "AABBCC", start + "AABC"}},
        // Anything but filler leaves room for a cube that ends as it should.
        {CKM_RSA_PKCS, "AABB", CKR_SIGNATURE_INVALID, {"00000111FFFFFF00AABB", "000001FFFFFF1100AABB"}},
        {CKM_RSA_PKCS, "AABB", CKR_SIGNATURE_INVALID, {"000001FFFF00FF00AABB", "000001FFFFFFFF11AABB"}},
        {CKM_RSA_PKCS, "", CKR_SIGNATURE_INVALID, {"", "0000", "000001FFFFFFFF"}},
        {CKM_RSA_X_509, "AABB", CKR_SIGNATURE_INVALID, {"000000AABBCC"}},
        {CKM_RSA_X_509, "00AABB", CKR_OK, {"000000AABB"}}};
    for (const auto& row : rows)
        for (const std::string& block : row.blocks) {
            // The desktop edition does not trust what other programs may have selected.
            answer(block + "9000", GetParam() ? 4 + isDesktop() : 9 + 2 * isDesktop());
            EXPECT_EQ(verify(find(CKO_PUBLIC_KEY), row.type, bytes(row.data), Bytes(128, 0x77)), row.rv)
                << block;
        }
}

TEST_P(CardOSTest, FailuresOfTheCardAreNotTakenForMore)
{
    begin();
    const CK_OBJECT_HANDLE mine = find(CKO_PRIVATE_KEY), theirs = find(CKO_PUBLIC_KEY);
    // What is no refusal of the PIN is none for the next use either.
    attribute(mine, CKA_MODULUS);
    answer("6F00", 2); // to VERIFY
    EXPECT_EQ(sign(mine, CKM_RSA_PKCS, m_data).rv, CKR_PIN_INCORRECT);
    EXPECT_EQ(encrypt(theirs, CKM_RSA_PKCS, m_data).length, m_card->key().size());
    // A refused PIN takes back from the card what an accepted one gave it.
    EXPECT_EQ(setPin("999999", "123456"), CKR_PIN_INCORRECT);
    EXPECT_EQ(encrypt(theirs, CKM_RSA_PKCS, m_data).length, m_card->key().size());
    // A modulus without bytes has nothing to encrypt with, which is no error.
    C_CloseAllSessions(1);
    fakepcsc::insertCard(m_reader, m_card);
    ASSERT_EQ(all({open(), login("123456")}), CKR_OK);
    for (const int nth : {3, 4, 5, 6}) // after the selections
        answer("9000", nth);
    const Outcome nothing = encrypt(theirs, CKM_RSA_PKCS, m_data);
    EXPECT_EQ(std::tuple(nothing.rv, nothing.length), std::tuple(CKR_OK, 0U));
    fakepcsc::forgetPlans();
    fakepcsc::clearCalls();
    EXPECT_NE(encrypt(theirs, CKM_RSA_X_509, m_data).rv, CKR_OK);
    EXPECT_TRUE(GetParam() || fakepcsc::sentAPDUs().empty()); // nor anything to load
    // Any length of data may be a whole plaintext.
    for (const CK_ULONG length : {10U, 512U}) {
        CK_MECHANISM rsa{CKM_RSA_PKCS, nullptr, 0};
        CK_ULONG told = 0;
        Bytes data(length);
        EXPECT_EQ(C_DecryptInit(m_session, &rsa, mine), CKR_OK);
        EXPECT_EQ(C_Decrypt(m_session, data.data(), length, nullptr, &told), CKR_OK);
        EXPECT_EQ(told, std::max<CK_ULONG>(length, 256));
        C_Decrypt(m_session, data.data(), length, data.data(), &(told = length));
    }
}

// Length bytes wrap modulo 256.
TEST_P(CardOSTest, LongKeys)
{
    m_card = std::make_shared<vcard::CardOSCard>(vcard::CardOSOptions{GetParam(), 2048});
    begin();
    const auto publicKey = publicKeyOf(m_card->certificate());
    EXPECT_EQ(decrypt(find(CKO_PRIVATE_KEY), CKM_RSA_PKCS, encryptFor(publicKey, m_data)).bytes, m_data);
    if (GetParam())
        return;
    const std::string modulus = vcard::toHex(attribute(find(CKO_PUBLIC_KEY), CKA_MODULUS).bytes);
    fakepcsc::clearCalls();
    EXPECT_EQ(encrypt(find(CKO_PUBLIC_KEY), CKM_RSA_PKCS, m_data).rv, CKR_DEVICE_ERROR);
    // A card that is left open for loading computes nothing.
    const CK_RV then = isDesktop() ? CKR_OK : CKR_DEVICE_ERROR;
    EXPECT_EQ(sign(find(CKO_PRIVATE_KEY), CKM_RSA_PKCS, m_data).rv, then);
    EXPECT_EQ(fakepcsc::sentAPDUs().at(3 + 2 * isDesktop()),
              "00DA016E1C83022002850821000C0FFFFF0000860801010101010101018F020100" + modulus);
}

TEST_P(CardOSTest, ALoadingThatWasGivenUpEndsWithAReset)
{
    if (GetParam())
        return; // loads no key
    begin();
    for (const bool isPutInAgain : {false, true}) {
        attribute(find(CKO_PUBLIC_KEY), CKA_MODULUS);
        fakepcsc::clearCalls();
        fakepcsc::failCall("SCardTransmit", SCARD_F_COMM_ERROR, 4 + 2 * isDesktop());
        fakepcsc::failCall("SCardReconnect", SCARD_F_COMM_ERROR, 1, 2);
        EXPECT_EQ(encrypt(find(CKO_PUBLIC_KEY), CKM_RSA_PKCS, m_data).rv, CKR_GENERAL_ERROR);
        if (isPutInAgain) {
            C_CloseAllSessions(1);
            fakepcsc::insertCard(m_reader, m_card);
            EXPECT_EQ(all({open(), login("123456")}), CKR_OK);
        }
        EXPECT_EQ(sign(find(CKO_PRIVATE_KEY), CKM_RSA_PKCS, m_data).rv, CKR_OK);
        EXPECT_EQ(fakepcsc::callCount("SCardReconnect"), isPutInAgain ? 2 : 3);
        fakepcsc::forgetPlans();
    }
    attribute(find(CKO_PUBLIC_KEY), CKA_MODULUS);
    fakepcsc::clearCalls();
    fakepcsc::failCall("SCardTransmit", SCARD_F_COMM_ERROR, 4 + 2 * isDesktop());
    fakepcsc::beforeCall("SCardReconnect", 1, [&] { fakepcsc::insertCard(m_reader, m_card); });
    EXPECT_EQ(encrypt(find(CKO_PUBLIC_KEY), CKM_RSA_PKCS, m_data).rv, CKR_GENERAL_ERROR);
    const std::vector<std::string> sent = fakepcsc::sentAPDUs();
    const auto isVerify = [](const std::string& command) { return command.substr(0, 4) == "0020"; };
    // No PIN goes to what may be another card; the desktop edition has shown it before.
    EXPECT_EQ(std::count_if(sent.begin(), sent.end(), isVerify), isDesktop());
}

INSTANTIATE_TEST_SUITE_P(Generations, CardOSTest, ::testing::Bool());

} // namespace
