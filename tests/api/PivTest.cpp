#include "tests/support/CryptokiFixture.h"
#include "tests/support/TraceFile.h"
#include "tools/vcard/PivCard.h"

#include <winscard.h>

using vcard::Bytes;

namespace {

class PivTest : public CryptokiFixture {
protected:
    void startPiv(const vcard::PivOptions& options = {})
    {
        m_card = std::make_shared<vcard::PivCard>(options);
        start(m_card);
    }
    std::shared_ptr<vcard::PivCard> m_card;
};

} // namespace

TEST_F(PivTest, SelectionHasASecondForm)
{
    fakepcsc::insertCard(fakepcsc::addReader("Reader"), std::make_shared<vcard::PivCard>());
    ASSERT_EQ(C_Initialize(nullptr), CKR_OK);
    answer("6A86", 1);
    answer("9001", 2);
    EXPECT_EQ(tokenInfo().label[0], 'P');
    EXPECT_EQ(fakepcsc::sentAPDUs().at(1), "00A4040C0BA000000308000010000100");
}

TEST_F(PivTest, TheManufacturerIsAskedForUntilTheReaderTellsIt)
{
    vcard::PivOptions options;
    options.historicalBytes = vcard::fromText("JCOP21V22");
    fakepcsc::insertCard(fakepcsc::addReader("Reader"), std::make_shared<vcard::PivCard>(options));
    ASSERT_EQ(C_Initialize(nullptr), CKR_OK);
    for (int nth = 1; nth <= 6; ++nth) { // the ATR is asked for again where the reader did not tell it
        fakepcsc::resetCard(0);
        fakepcsc::failCall("SCardGetStatusChange", SCARD_F_COMM_ERROR, nth);
        CK_TOKEN_INFO info{};
        C_GetTokenInfo(1, &info);
        fakepcsc::forgetPlans();
        EXPECT_EQ(tokenInfo().manufacturerID[0], 'J') << nth;
    }
}

TEST_F(PivTest, SignaturesStandUpAndMessagesAreRead)
{
    for (const bool t0 : {false, true}) {
        fakepcsc::reset();
        vcard::PivOptions options;
        options.t0 = t0;
        startPiv(options);
        ASSERT_EQ(login("123456"), CKR_OK);
        TraceFile trace;
        const CK_FLAGS flags = tokenInfo().flags;
        EXPECT_EQ((flags & CKF_TOKEN_INITIALIZED) != 0, isDesktop());
        const std::vector<std::string> lines = trace.lines();
        EXPECT_EQ(std::count(lines.begin(), lines.end(), "pInfo->flags :\t " + std::to_string(flags)), 1);
        const Bytes data = vcard::fromText("a DigestInfo");
        const auto key = find(CKO_PRIVATE_KEY);
        fakepcsc::clearCalls();
        EXPECT_TRUE(
            isSignature(publicKeyOf(m_card->certificate(0x9A)), data, sign(key, CKM_RSA_PKCS, data).bytes));
        std::string starts;
        for (const std::string& apdu : fakepcsc::sentAPDUs())
            starts += apdu.substr(0, 10) + " ";
        EXPECT_EQ(starts, (isDesktop() ? "00A404000B " : "") +
                              std::string("0020008008 1087079AF9 0087079A11 00C0000000 00C0000008 "));
        // Init and Sign: is a card there, is it the same. The edition has begun and ended a transaction.
        EXPECT_EQ(fakepcsc::calls().size(), 5U + 2 * 2U + (isDesktop() ? 3U : 0U));
        const auto owner = publicKeyOf(m_card->certificate(0x9D));
        const auto reader = find(CKO_PRIVATE_KEY, 2);
        EXPECT_EQ(decrypt(reader, CKM_RSA_PKCS, encryptFor(owner, data), data.size()).bytes, data);
        EXPECT_EQ(decrypt(reader, CKM_RSA_PKCS, encryptFor(owner, data), 5).length, data.size());
        const Bytes block(256, 0x5A);
        EXPECT_EQ(decrypt(reader, CKM_RSA_X_509, encryptFor(owner, block, RSA_NO_PADDING)).bytes, block);
        const Outcome raw = sign(key, CKM_RSA_PKCS, vcard::join({block, data}));
        const Outcome tight = sign(key, CKM_RSA_PKCS, Bytes(253, 1)); // leaves no room for filler
        EXPECT_EQ(raw.rv | tight.rv, isDesktop() ? CKR_DATA_LEN_RANGE : CKR_OK);
        const Bytes modulus = attribute(key, CKA_MODULUS).bytes;
        EXPECT_TRUE(isDesktop() || vcard::RsaKey::publicOperation(modulus, {1, 0, 1}, raw.bytes) == block);
        EXPECT_EQ(sign(key, CKM_RSA_X_509, data).rv, isDesktop() ? CKR_OK : CKR_MECHANISM_INVALID);
        C_Finalize(nullptr);
    }
}

TEST_F(PivTest, WhatIsDisturbedAgainWhileItIsDoneOnceMoreFailsForThat)
{
    const std::function<void()> disturbances[] = {
        [this] { fakepcsc::resetCard(m_reader); },
        [this] { fakepcsc::insertCard(m_reader, std::make_shared<vcard::PivCard>()); },
        [this] {
            fakepcsc::resetCard(m_reader), fakepcsc::failCall("SCardTransmit", SCARD_F_COMM_ERROR, 2);
        }};
    std::vector<CK_RV> signs, logins;
    for (const auto& disturb : disturbances)
        for (int nth = 4; nth <= 7; ++nth) { // from the repeated command to the one that signs again
            startPiv();
            ASSERT_EQ(login("123456"), CKR_OK);
            fakepcsc::beforeCall("SCardTransmit", 2 + isDesktop(), disturbances[0]);
            fakepcsc::beforeCall("SCardTransmit", nth + isDesktop(), disturb);
            signs.push_back(sign(find(CKO_PRIVATE_KEY), CKM_RSA_PKCS, Bytes(20)).rv);
            fakepcsc::forgetPlans();
            C_CloseSession(m_session);
            ASSERT_EQ(open(), CKR_OK);
            fakepcsc::beforeCall("SCardTransmit", 1 + isDesktop(), disturbances[0]);
            fakepcsc::beforeCall("SCardTransmit", nth - 2 + isDesktop(), disturb);
            logins.push_back(login("123456"));
            C_Finalize(nullptr);
            fakepcsc::reset();
        }
    constexpr CK_RV kCard = CKR_DEVICE_ERROR, kGone = CKR_DEVICE_REMOVED, kReader = CKR_GENERAL_ERROR;
    EXPECT_EQ(signs, (std::vector<CK_RV>{CKR_OK, kCard, kCard, kCard, kGone, kReader, kReader, kGone, kReader,
                                         kReader, kReader, kReader}));
    EXPECT_EQ(logins, (std::vector<CK_RV>{kReader, CKR_OK, kCard, CKR_OK, kReader, kReader, kReader, CKR_OK,
                                          kReader, kReader, isDesktop() ? kCard : CKR_OK, CKR_OK}));
}

TEST_F(PivTest, PinsAreChangedByTheirOwners)
{
    vcard::PivOptions options;
    options.verifiesPuk = true;
    startPiv(options);
    EXPECT_EQ(setPin("123456", "654321"), CKR_OK);
    ASSERT_EQ(login("654321"), CKR_OK);
    EXPECT_EQ(setPin("654321", "77777777"), CKR_OK);
    const CK_OBJECT_HANDLE key = find(CKO_PRIVATE_KEY, 1);
    EXPECT_EQ(sign(key, CKM_RSA_PKCS, Bytes(20)).length, 128U); // the new one is shown
    const auto disturb = [&](int nth) {
        fakepcsc::beforeCall("SCardTransmit", nth, [&] { fakepcsc::resetCard(m_reader); });
        answer("63C2", nth);
    };
    // Which PIN does a card refuse that was reset beside the change, or has it if the reader failed?
    disturb(2 + isDesktop());
    EXPECT_EQ(setPin("77777777", "654321"), CKR_DEVICE_ERROR);
    EXPECT_EQ(C_Logout(m_session), CKR_USER_NOT_LOGGED_IN);
    disturb(2); // a refusal is one, though the card was reset
    EXPECT_EQ(login("77777777"), CKR_PIN_INCORRECT);
    ASSERT_EQ(login("77777777"), CKR_OK);
    fakepcsc::failCall("SCardTransmit", SCARD_F_COMM_ERROR, 2 + isDesktop());
    EXPECT_EQ(setPin("77777777", "654321"), CKR_GENERAL_ERROR);
    EXPECT_EQ(C_Logout(m_session), CKR_USER_NOT_LOGGED_IN);
    ASSERT_EQ(login("12345678", CKU_SO), CKR_OK);
    EXPECT_EQ(setPin("12345678", "87654321"), CKR_OK);
    EXPECT_EQ(sign(key, CKM_RSA_PKCS, Bytes(20)).rv, CKR_USER_NOT_LOGGED_IN);
    EXPECT_EQ(all({C_Logout(m_session), login("87654321", CKU_SO)}), CKR_OK);
}
