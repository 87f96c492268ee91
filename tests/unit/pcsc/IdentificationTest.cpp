#include "pkcs11/pcsc/CardIdentification.h"
#include "pkcs11/token/Hex.h"
#include "pkcs11/token/Token.h"
#include "tests/support/ReaderFixture.h"

#include <winscard.h>

using namespace PKCS11;

namespace {

class Identification : public ReaderFixture {
protected:
    /// Vendor and card-type word.
    std::string classify(const std::string& historical)
    {
        const vcard::Bytes atr = scripted::atrWith(historical);
        Blob type;
        const std::string os = m_slot->GetOS(Blob(atr.begin(), atr.end()), type);
        return os + " " + toText(type);
    }
    /// What becomes of createToken; the channel must be closed unless there is a token.
    std::string create()
    {
        std::unique_ptr<Token> token;
        const std::string failure = thrownBy([&] { token = m_slot->createToken(); });
        EXPECT_EQ(m_slot->isConnected(), token != nullptr);
        return !failure.empty() ? failure : token ? "token" : "none";
    }
    /// The application that a card which answers so is taken for.
    std::string iasOn(scripted::Card& card, const std::string& script)
    {
        card.expectAll(script);
        const std::string failure = thrownBy([&] { EXPECT_TRUE(m_slot->CheckIAS()); });
        return failure.empty() ? PKCS11_blob2hex(m_slot->GetAIDofIAS()) : failure; // without a command
    }
};

std::string history(const std::string& atr)
{
    return PKCS11_blob2hex(getHistoricalBytes(PKCS11_hex2blob(atr.c_str())));
}
std::string select(const std::string& aid)
{
    return "00A40404" + vcard::toHex({static_cast<unsigned char>(aid.size() / 2)}) + aid;
}
const std::string kTokenInfo = "00A40204025032";
const std::string kODF = " 00A40204025031";
const std::string kFiles = " " + kTokenInfo + kODF;
const std::string kDir = " 00A40204022F00";
const std::string kApplet = " " + select("A000000077010800070000FE");
const std::string kPKCS15 = " " + select("E828BD080FD2500000040301");
const std::string kGeneric = " " + select("E828BD080FD25047656E65726963");
const std::string kPIVProbe = " 00A404000BA000000308000010000100";

TEST_F(Identification, FindsHistoricalBytesBehindInterfaceBytes)
{
    EXPECT_EQ(history("3B6241BBC901"), "C901");           // TB1 only
    EXPECT_EQ(history("3BD218008131FE58C90114"), "C901"); // two TD, then TA and TB; TCK left out
    EXPECT_EQ(history("3B05C901"), "C901");               // cut short
    for (const char* atr : {"", "3B", "3B00", "3B82", "3B82F1", "3B8F8080", "3BF211", "3BFFFFFFFFFFFFFF"})
        EXPECT_EQ(history(atr), "") << atr;
}

TEST_F(Identification, KnowsEveryRow)
{
    const std::pair<const char*, std::vector<const char*>> rows[] = {
        {"Siemens CARDOS_CARD", {"4d346376", "56346376", "56343262", "4d34"}},
        {"Atos CARDOS_CARD", {"c901"}},
        {"Oberthur ACTIV_IDENTITY_CARD", {"0031c06477e30300829000"}},
        {"Axalto ACTIV_IDENTITY_CARD", {"ae01030000", "2905010201"}},
        {"G&D ACTIV_IDENTITY_CARD", {"8073002113574a544861314700"}},
        {"ACOS EDU_CARD",
         {"455041000000000227507000000000", "45504100000000294890350000002b",
          "455041000000003169480600000000", "455041000000002948797500000017",
          "455041000000002116819800000000", "455041000000002156977900000000",
          "41434f000000000000000000000000", "454d56203033202006", "455041000000002001847700000000",
          "455041000000002116807500000000"}},
        {"ACOS A-TRUST_CARD", {"455041000000000000000000000000"}},
        {"Oberthur IAS_CARD", {"0031b9640000ecc1739401c00f9000", "0031c064b0f31000019000"}},
        {"Sagem Orga IAS_CARD", {"0031b8645023ecc173940180829000"}},
        {"Gemalto IAS_CARD", {"0031b8644070141073940180829000"}},
        {"SmartCafe Expert 5.0 PIV_CARD", {"53462d3443432d3031"}},
        {"JCOP 21 PIV_CARD", {"4A434F503231563232"}},
        {"Oberthur ID One v7PIV PIV_CARD", {"8073cc91cbf9a00000030800001000"}},
        {"Gemalto TOP DL V2 PIV_CARD", {"80318065b0831111e583009000"}},
        {"Gemalto TPC DM 72K PIV_CARD", {"80318065b0831111ac83009000"}},
        {"Oberthur ID One Dual 128 V5.5 PIV_CAC_CARD", {"0031c064b0f31000079000"}},
        {"unknown card PIV_CARD", {"c90100", "4d346377", "31", ""}},
    };
    for (const auto& [name, texts] : rows)
        for (const char* bytes : texts)
            EXPECT_EQ(classify(bytes), name) << bytes;
}

TEST_F(Identification, ProbesForIASAndSearchesTheDirectory)
{
    scripted::Card& card = connect();
    EXPECT_EQ(iasOn(card, kApplet + kPKCS15 + kFiles), IAS_PKCS15_AID);
    EXPECT_EQ(iasOn(card, kApplet + kPKCS15 + kFiles + ":6A82" + kGeneric + kFiles), SAGEM_IAS_GENERIC_AID);
    EXPECT_EQ(iasOn(card, kApplet + ":6A82" + kGeneric + ":6A82" + kPKCS15 + kFiles), IAS_PKCS15_AID);

    const std::string search =
        kApplet + ":6A82" + kGeneric + ":6A82" + kPKCS15 + ":6A82" + kDir + " 00B0000000:";
    const std::string other = "61054F03A0B0C0", pkcs15 = "610E4F0CE828BD080FD2500000040301";
    const int resets = card.resets();
    EXPECT_EQ(iasOn(card, search + "00" + other + "6103500101" + pkcs15 + "6282" + kPKCS15 + kFiles),
              IAS_PKCS15_AID);
    EXPECT_EQ(card.resets(), resets + 1);
    // The one that is named first for its application fails; then any other is good.
    EXPECT_EQ(iasOn(card, search + "61024F006109500761054F03A0B0C1" + pkcs15 + other + "6282" + kPKCS15 +
                              " " + kTokenInfo + ":6A82" + kPKCS15 + ":6A82 " + select("A0B0C0") + kFiles),
              "A0B0C0");
    EXPECT_EQ(iasOn(card, search + "61054F03A0B06282"), "30|AID not found|GetAIDofIAS");
    card.expectAll(kDir + ":6A82");
    EXPECT_EQ(thrownBy([&] { m_slot->GetAIDofIAS(); }), "30|Select File|PCSCSlot::SelectEF");
}

TEST_F(Identification, TurnsFailuresIntoNoToken)
{
    for (const std::string answer : {"9000", "9001", "AA6102", "6A82"}) {
        connect().expectAll(kPIVProbe + ":" + answer);
        EXPECT_EQ(m_slot->IsPIVToken(), answer != "6A82") << answer;
        m_slot->CloseChannel();
    }
    insert("ae01030000").expectAll(kPIVProbe + ":6A82");
    EXPECT_EQ(create(), "none");
    insert("ae01030000");
    fakepcsc::failCall("SCardConnect", SCARD_E_SHARING_VIOLATION);
    EXPECT_EQ(create(), "none");
    insert("0031c064b0f31000019000")
        .expectAll(kPIVProbe + ":6A82" + kApplet + ":6A82" + kGeneric + ":6A82" + kPKCS15 + ":6A82" + kDir +
                   ":6A82");
    EXPECT_EQ(create(), "E1|Select File|PCSCSlot::SelectEF");
    insert().expectAll(kPIVProbe + ":6A82"); // the driver's own select
    EXPECT_EQ(create().substr(0, 3), "E1|");
    fakepcsc::removeCard(m_reader);
    EXPECT_EQ(create(), "none");
    fakepcsc::failCall("SCardGetStatusChange", SCARD_E_NO_SERVICE);
    EXPECT_EQ(create(), "30|could not connect to reader (wrong READERNAME set?)|PCSCSlot::IsTokenPresent");
}

} // namespace
