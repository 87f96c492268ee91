#include "pkcs11/pcsc/CardIdentification.h"
#include "pkcs11/token/Hex.h"
#include "pkcs11/token/Token.h"
#include "tests/support/ReaderFixture.h"

#include <sstream>
#include <winscard.h>

using namespace PKCS11;

namespace {

class Identification : public ReaderFixture {
protected:
    /// Vendor and card-type word.
    std::string classify(const vcard::Bytes& atr)
    {
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
};

std::string hexOf(const Blob& bytes)
{
    return PKCS11_blob2hex(bytes);
}
std::string history(const std::string& atr)
{
    return hexOf(getHistoricalBytes(PKCS11_hex2blob(atr.c_str())));
}
std::string select(const std::string& aid)
{
    return "00A40404" + hexOf(Blob(1, static_cast<unsigned char>(aid.size() / 2))) + aid;
}
const std::string kTokenInfo = "00A40204 02 5032";
const std::string kODF = "00A40204 02 5031";
const std::string kDir = "00A40204 02 2F00";
const std::string kApplet = select("A000000077010800070000FE");
const std::string kPKCS15 = select("E828BD080FD2500000040301");
const std::string kGeneric = select("E828BD080FD25047656E65726963");
const std::string kPIVProbe = "00A40400 0B A000000308000010000100";

TEST_F(Identification, FindsHistoricalBytesBehindInterfaceBytes)
{
    EXPECT_EQ(history("3B6241BBC901"), "C901");           // TB1 only
    EXPECT_EQ(history("3BD218008131FE58C90114"), "C901"); // two TD, then TA and TB; TCK left out
    EXPECT_EQ(history("3B02C901"), "C901");
    EXPECT_EQ(history("3B05C901"), "C901"); // cut short
    for (const char* atr : {"", "3B", "3B00", "3B82", "3B82F1", "3B8F8080", "3BF211", "3BFFFFFFFFFFFFFF"})
        EXPECT_EQ(history(atr), "") << atr;
}

TEST_F(Identification, KnowsEveryRow)
{
    const char* const rows[][2] = {
        {"Siemens CARDOS_CARD", "4d346376 56346376 56343262 4d34"},
        {"Atos CARDOS_CARD", "c901"},
        {"Oberthur ACTIV_IDENTITY_CARD", "0031c06477e30300829000"},
        {"Axalto ACTIV_IDENTITY_CARD", "ae01030000 2905010201"},
        {"G&D ACTIV_IDENTITY_CARD", "8073002113574a544861314700"},
        {"ACOS EDU_CARD", "455041000000000227507000000000 45504100000000294890350000002b"},
        {"ACOS EDU_CARD", "455041000000003169480600000000 455041000000002948797500000017"},
        {"ACOS EDU_CARD", "455041000000002116819800000000 455041000000002156977900000000"},
        {"ACOS EDU_CARD", "41434f000000000000000000000000 454d56203033202006"},
        {"ACOS EDU_CARD", "455041000000002001847700000000 455041000000002116807500000000"},
        {"ACOS A-TRUST_CARD", "455041000000000000000000000000"},
        {"Oberthur IAS_CARD", "0031b9640000ecc1739401c00f9000 0031c064b0f31000019000"},
        {"Sagem Orga IAS_CARD", "0031b8645023ecc173940180829000"},
        {"Gemalto IAS_CARD", "0031b8644070141073940180829000"},
        {"SmartCafe Expert 5.0 PIV_CARD", "53462d3443432d3031"},
        {"JCOP 21 PIV_CARD", "4A434F503231563232"},
        {"Oberthur ID One v7PIV PIV_CARD", "8073cc91cbf9a00000030800001000"},
        {"Gemalto TOP DL V2 PIV_CARD", "80318065b0831111e583009000"},
        {"Gemalto TPC DM 72K PIV_CARD", "80318065b0831111ac83009000"},
        {"Oberthur ID One Dual 128 V5.5 PIV_CAC_CARD", "0031c064b0f31000079000"},
        {"unknown card PIV_CARD", "c90100 4d346377 31"},
    };
    for (const auto& row : rows) {
        std::istringstream texts(row[1]);
        for (std::string bytes; texts >> bytes;)
            EXPECT_EQ(classify(scripted::atrWith(bytes)), row[0]) << bytes;
    }
    EXPECT_EQ(classify(scripted::atrWith("")), "unknown card PIV_CARD");
    EXPECT_TRUE(m_slot->ReadATRIniFile(ATR_LIST_FILE));
    EXPECT_EQ(findATRTableRow(Blob()), nullptr);
}

TEST_F(Identification, ReadsTheATRWithoutAChannel)
{
    EXPECT_EQ(m_slot->GetATR(), Blob());
    insert("c901");
    EXPECT_EQ(hexOf(m_slot->GetATR()), "3B8201C9014B");
    fakepcsc::failCall("SCardGetStatusChange", SCARD_E_NO_SERVICE);
    EXPECT_EQ(m_slot->GetATR(), Blob());
    EXPECT_EQ(fakepcsc::callCount("SCardConnect"), 0);
}

TEST_F(Identification, ProbesForIAS)
{
    scripted::Card& card = connect();
    card.expect(kApplet, "9000").expect(kPKCS15, "9000").expect(kTokenInfo, "9000").expect(kODF, "9000");
    EXPECT_TRUE(m_slot->CheckIAS());
    EXPECT_EQ(hexOf(m_slot->GetAIDofIAS()), IAS_PKCS15_AID); // kept: no command

    card.expect(kApplet, "9000").expect(kPKCS15, "9000").expect(kTokenInfo, "9000").expect(kODF, "6A82");
    card.expect(kGeneric, "9000").expect(kTokenInfo, "9000").expect(kODF, "9000");
    EXPECT_TRUE(m_slot->CheckIAS());
    EXPECT_EQ(hexOf(m_slot->GetAIDofIAS()), SAGEM_IAS_GENERIC_AID);

    card.expect(kApplet, "6A82").expect(kGeneric, "6A82");
    card.expect(kPKCS15, "9000").expect(kTokenInfo, "9000").expect(kODF, "9000");
    EXPECT_TRUE(m_slot->CheckIAS());
    EXPECT_EQ(hexOf(m_slot->GetAIDofIAS()), IAS_PKCS15_AID);
}

TEST_F(Identification, SearchesTheDirectoryForIAS)
{
    const auto searched = [&](scripted::Card& card, const std::string& dir) -> scripted::Card& {
        card.expect(kApplet, "6A82").expect(kGeneric, "6A82").expect(kPKCS15, "6A82");
        return card.expect(kDir, "9000").expect("00B0000000", dir + "6282");
    };
    const std::string other = "61054F03A0B0C0";
    const std::string pkcs15 = "610E4F0CE828BD080FD2500000040301";
    scripted::Card& card = connect();
    const int resets = card.resets();
    searched(card, "00" + other + "6103500101" + pkcs15);
    card.expect(kPKCS15, "9000").expect(kTokenInfo, "9000").expect(kODF, "9000");
    EXPECT_TRUE(m_slot->CheckIAS());
    EXPECT_EQ(hexOf(m_slot->GetAIDofIAS()), IAS_PKCS15_AID);
    EXPECT_EQ(card.resets(), resets + 1);

    // The one that is named first for its application fails; then any other is good.
    searched(card, "61024F00 6109500761054F03A0B0C1" + pkcs15 + other)
        .expect(kPKCS15, "9000")
        .expect(kTokenInfo, "6A82");
    card.expect(kPKCS15, "6A82")
        .expect(select("A0B0C0"), "9000")
        .expect(kTokenInfo, "9000")
        .expect(kODF, "9000");
    EXPECT_TRUE(m_slot->CheckIAS());
    EXPECT_EQ(hexOf(m_slot->GetAIDofIAS()), "A0B0C0");

    searched(card, "61054F03A0B0").expect(kDir, "6A82");
    EXPECT_EQ(thrownBy([&] { m_slot->CheckIAS(); }), "30|AID not found|GetAIDofIAS");
    EXPECT_EQ(thrownBy([&] { m_slot->GetAIDofIAS(); }), "30|Select File|PCSCSlot::SelectEF");
}

TEST_F(Identification, ProbesForPIV)
{
    scripted::Card& card = connect();
    for (const char* answer : {"9000", "9001", "AA 6102"}) {
        card.expect(kPIVProbe, answer);
        EXPECT_TRUE(m_slot->IsPIVToken()) << answer;
    }
    card.expect(kPIVProbe, "6A82");
    EXPECT_FALSE(m_slot->IsPIVToken());
}

TEST_F(Identification, TurnsFailuresIntoNoToken)
{
    EXPECT_EQ(create(), "none");
    EXPECT_EQ(fakepcsc::callCount("SCardConnect"), 0);
    insert("0031c064b0f31000079000"); // no driver, and no command to find out
    std::vector<std::string> lines;
    Logger::SetLogger(std::make_unique<TraceRecorder>(lines).release());
    EXPECT_EQ(create(), "none");
    Logger::FreeLogger();
    EXPECT_EQ(lines.at(0), "80 Oberthur ID One Dual 128 V5.5");
    EXPECT_EQ(lines.at(1), "80 model: 5049565F4341435F43415244");

    insert("ae01030000").expect(kPIVProbe, "6A82");
    EXPECT_EQ(create(), "none");
    insert("ae01030000");
    fakepcsc::failCall("SCardConnect", SCARD_E_SHARING_VIOLATION);
    EXPECT_EQ(create(), "none");
    scripted::Card& card = insert("0031c064b0f31000019000");
    card.expect(kPIVProbe, "6A82").expect(kApplet, "6A82").expect(kGeneric, "6A82").expect(kPKCS15, "6A82");
    card.expect(kDir, "6A82");
    EXPECT_EQ(create(), "E1|Select File|PCSCSlot::SelectEF");
    insert().expect(kPIVProbe, "6A82"); // the driver's own select
    EXPECT_EQ(create().substr(0, 3), "E1|");
    fakepcsc::failCall("SCardGetStatusChange", SCARD_E_NO_SERVICE);
    EXPECT_EQ(create(), "30|could not connect to reader (wrong READERNAME set?)|PCSCSlot::IsTokenPresent");
}

} // namespace
