// A reader's slot and its card: commands with the rules of status words, files, and what a card is taken for.
#include "pkcs11/pcsc/PCSCSlot.h"

#include "pkcs11/pcsc/CardIdentification.h"
#include "pkcs11/token/Token.h"
#include "tests/support/CryptokiFixture.h"
#include "tests/support/Expected.h"
#include "tests/support/Failure.h"
#include "tests/support/ScriptedCard.h"
#include "tests/support/TraceFile.h"

#include <winscard.h>

using namespace PKCS11;
using Texts = std::vector<std::string>;

namespace {

std::string repeated(const std::string& byte, int count)
{
    return count == 0 ? "" : byte + repeated(byte, count - 1);
}
/// Commands that read so many chunks of a file, with their answers.
std::string chunks(int count, int size, const std::string& le = "")
{
    std::string script;
    for (int offset = 0; offset < count * size; offset += size)
        script += "00B0" + vcard::toHex(vcard::twoBytes(static_cast<unsigned>(offset))) +
                  (le.empty() ? vcard::toHex({static_cast<unsigned char>(size)}) : le) + ":" +
                  repeated("11", size) + "9000 ";
    return script;
}
std::string select(const std::string& aid)
{
    return "00A40404" + vcard::toHex({static_cast<unsigned char>(aid.size() / 2)}) + aid;
}

class PCSCSlotTest : public CryptokiFixture {
protected:
    void SetUp() override
    {
        CryptokiFixture::SetUp();
        m_reader = fakepcsc::addReader("Reader");
        ASSERT_EQ(C_Initialize(nullptr), CKR_OK);
        m_slot = &dynamic_cast<PCSCSlot&>(*wrapper.slots()->getSlot(1));
    }
    void TearDown() override
    {
        m_slot->CloseChannel();
        CryptokiFixture::TearDown();
        fakepcsc::reset(); // lets go of the card
    }
    void insert(const std::string& script, const std::string& historical = "", bool t0 = false)
    {
        m_card = std::make_shared<scripted::Card>(script, historical, t0);
        fakepcsc::insertCard(m_reader, m_card);
    }
    void connect(const std::string& script = "", const std::string& historical = "", bool t0 = false)
    {
        m_slot->CloseChannel();
        insert(script, historical, t0);
        m_slot->CreateChannel();
        fakepcsc::clearCalls();
    }
    /// Status word and data.
    static std::string shown(int sw, const Blob& data = {})
    {
        return vcard::toHex(vcard::twoBytes(static_cast<unsigned>(sw))) + PKCS11_blob2hex(data);
    }
    std::string send(const std::string& command)
    {
        Blob answer;
        const int sw = m_slot->SendCmd(hex(command), answer);
        return shown(sw, answer);
    }
    PCSCSlot* m_slot = nullptr;
    std::shared_ptr<scripted::Card> m_card;
};

const std::string kTokenInfo = "00A40204025032";
const std::string kFiles = " " + kTokenInfo + " 00A40204025031";
const std::string kDir = " 00A40204022F00";
const std::string kApplet = " " + select("A000000077010800070000FE");
const std::string kPKCS15 = " " + select("E828BD080FD2500000040301");
const std::string kGeneric = " " + select("E828BD080FD25047656E65726963");
const std::string kPIVProbe = " 00A404000BA000000308000010000100";

TEST_F(PCSCSlotTest, SendsReadsSelectsAndProbes)
{
    using Operation = std::function<std::string()>;
    const Blob header = hex("00870011");
    Blob answer;
    const auto command = [&](const std::string& text) -> Operation { return [=] { return send(text); }; };
    const Operation read = [&] { return shown(m_slot->ReadBinary(answer), answer); };
    const Operation readEF = [&] {
        bool isWhole = false;
        const std::string content = PKCS11_blob2hex(m_slot->ReadBinaryEF(&isWhole));
        return content + (isWhole ? "" : " and more");
    };
    const Operation gather = [&] { return PKCS11_blob2hex(m_slot->SendCard(header, hex("AA"))); };
    const Operation appl = [&] { return PKCS11_blob2hex(m_slot->SelectAppl("A001")); };
    const Operation file = [&] { return m_slot->SelectEF_IAS(0x5031), "done"; };
    const Operation isPIV = [&] { return m_slot->IsPIVToken() ? "yes" : "no"; };
    const Operation aid = [&] { return PKCS11_blob2hex(m_slot->GetAIDofIAS()); };
    const Operation ias = [&] { return m_slot->CheckIAS() ? aid() : "none"; };
    const Operation create = [&] { return m_slot->createToken() ? "token" : "none"; };
    const std::string chunk = repeated("55", 256), full = repeated("11", 241),
                      first = "00B00000F1:" + full + "9000 00B000F1F1:";
    const std::string whole = "00A4040001AA00", cut = "00A4040001AA", verify = "00200080023132";
    const std::string failed = "5|PCSC driver failed|PCSCSlot::SendCmdIntern";
    const std::string search =
        kApplet + ":6A82" + kGeneric + ":6A82" + kPKCS15 + ":6A82" + kDir + " 00B0000000:";
    const std::string other = "61054F03A0B0C0", pkcs15 = "610E4F0CE828BD080FD2500000040301";
    const struct {
        Operation run;
        std::string script, outcome, historical = {};
        bool t0 = false;
        std::vector<long> failures = {};
        Texts sent = {};
    } rows[] = {
        {command("00B0000000"), "00B0000000:6C08 00B0000008:6120 00C0000020:BB6105", "6105BB"},
        {command("00B0000000"), "00B0000000:CC6120", "6120CC"},
        {command("00B0000000"), "00B0000000:" + repeated("DD", 638) + "9000", "9000" + repeated("DD", 638)},
        {command("00B0000000"), "00B0000000:6C08 00B0000008:6C09", "6C09"},
        {[&] {
             char data[640];
             int length = 0;
             const int sw = m_slot->SendCmd(std::string("00b00000F1"), data, &length);
             return shown(sw, Blob(data, data + length));
         },
         "00B00000F1:EE9000", "9000EE"},
        {command("00A40000"), "00A40000:6C10 00A4000010:AA9000", "9000AA"},
        {command("00CB3FFF0000055C035FC1050000"),
         "00CB3FFF0000055C035FC1050000:6C20 00CB3FFF0000055C035FC1050020:DD9000", "9000DD"},
        {[&] { return shown(m_slot->Send(header, hex("AABB"), 7, answer)); }, "0087001102AABB07", "9000"},
        {[&] { return shown(m_slot->Send(header, Blob())); }, "0087001100", "9000"},
        {gather, "0087001101AA:016102 00C0000002:026100 00C0000000:036A82", "010203"},
        {gather, "0087001101AA:6C05", ""},
        {gather, "0087001101AA:" + chunk + "6100" + repeated(" 00C0000000:" + chunk + "6100", 255),
         repeated(chunk, 256)},
        {gather, "0087001101AA:016101" + repeated(" 00C0000001:016101", 1024), repeated("01", 1025)},
        {[&] { return shown(m_slot->SendCmdChained(hex("0087001100"), answer), answer); },
         "0087001100:6102 00C0000002:026102 00C0000002:6102", "610202"},
        {read, first + "6B00", "9000" + full},
        {read, first + "9000", "9000" + full},
        {read, first + repeated("22", 240) + "9000", "9000" + full + repeated("22", 240)},
        {read, first + "22226282", "9000" + full + "2222"},
        {read, "00B00000F1:6B00", "6B00"},
        {read, "00B00000F1:6A82", "6A82"},
        {read, chunks(17, 241), "9000" + repeated("11", 4096)},
        {readEF,
         "00B0000000:6C40 00B0000040:6C40 00B0000070:0102039000 00B0000300:6700 00B0000370:049000 "
         "00B0000400:056282",
         "0102030405"},
        {readEF, "00B0000000:6700 00B0000070:6700", ""},
        {readEF, "00B0000000:019000 00B0000100:6B00", "01"},
        {readEF, "00B0000000:019000 00B0000100:6A86", "01"},
        {readEF, "00B0000000:019000 00B0000100:6F00", "01 and more"},
        {readEF, chunks(128, 256), repeated(repeated("11", 256), 128)},
        {readEF, chunks(1024, 1, "00"), repeated("11", 1024) + " and more"},
        // Under T=0 with the length that the card names.
        {readEF, "00B0000000:6C40 00B0000040:6C41 00B0000041:016282", "01", "", true},
        {appl, "00A4040402A001:6A86 00A4040002A001:6F059000", "6F05"},
        {appl, "00A4040402A001:6A82", "30||"},
        {file, "00A40204025031", "done"},
        {file, "00A40204025031:6A82", "30|Select File|PCSCSlot::SelectEF"},
        {isPIV, kPIVProbe, "yes"},
        {isPIV, kPIVProbe + ":9001", "yes"},
        {isPIV, kPIVProbe + ":AA6102", "yes"},
        {isPIV, kPIVProbe + ":6A82", "no"},
        {ias, kApplet + kPKCS15 + kFiles, IAS_PKCS15_AID},
        {ias, kApplet + kPKCS15 + kFiles + ":6A82" + kGeneric + kFiles, SAGEM_IAS_GENERIC_AID},
        {ias, kApplet + ":6A82" + kGeneric + ":6A82" + kPKCS15 + kFiles, IAS_PKCS15_AID},
        {ias, search + "00" + pkcs15 + other + "6103500101" + "6282" + kPKCS15 + kFiles, IAS_PKCS15_AID},
        // The one that is named first for its application fails; then any other is good.
        {ias,
         search + "61024F00610B5002000061054F03A0B0C1" + pkcs15 + other + "6282" + kPKCS15 + " " +
             kTokenInfo + ":6A82" + kPKCS15 + ":6A82 " + select("A0B0C0") + kFiles,
         "A0B0C0"},
        {ias, search + "61054F03A0B06282", "30|AID not found|GetAIDofIAS"},
        {aid, kDir + ":6A82", "30|Select File|PCSCSlot::SelectEF"},
        {create, kPIVProbe + ":6A82", "none", "ae01030000"},
        {create, kPIVProbe + kPIVProbe + ":6A82", "E1|error select app|PIVJavaToken::SelectApp",
         "ae01030000"},
        {create, kPIVProbe + ":6A82", "E1|error select app|PIVJavaToken::SelectApp"},
        {create,
         kPIVProbe + ":6A82" + kApplet + ":6A82" + kGeneric + ":6A82" + kPKCS15 + ":6A82" + kDir + ":6A82",
         "E1|Select File|PCSCSlot::SelectEF", "0031c064b0f31000019000"},
        // Once more for a card that is not what it was, and without the length where T=0 refuses it.
        {command(whole), whole, "9000", "", false, {SCARD_W_RESET_CARD}, {whole, whole}},
        {command(whole), whole, "9000", "", false, {SCARD_W_REMOVED_CARD}, {whole, whole}},
        {command(whole), whole, "9000", "", false, {SCARD_W_UNRESPONSIVE_CARD}, {whole, whole}},
        {command(whole), "", failed, "", false, {SCARD_W_RESET_CARD, SCARD_W_RESET_CARD}, {whole, whole}},
        {command(whole), "", failed, "", false, {0x57}, {whole}},
        {command(whole), cut, "9000", "", true, {0x57}, {whole, cut}},
        {command(whole), cut, "9000", "", true, {SCARD_E_INVALID_PARAMETER}, {whole, cut}},
        {command(whole), cut, "9000", "", true, {SCARD_W_RESET_CARD, 0x57}, {whole, whole, cut}},
        {command(verify), "", failed, "", true, {0x57}, {verify}}, // there the last byte is the PIN's
        {command(verify), verify + ":6C07", "6C07", "", true, {}, {verify}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.script.substr(0, 200));
        connect(row.script, row.historical, row.t0);
        for (std::size_t i = 0; i < row.failures.size(); ++i)
            fakepcsc::failCall("SCardTransmit", row.failures[i], static_cast<int>(i) + 1);
        std::string outcome;
        outcome += thrownBy([&] { outcome = row.run(); });
        EXPECT_EQ(outcome, row.outcome);
        EXPECT_NE(m_slot->isConnected(), outcome == "none" || outcome.rfind("E1|", 0) == 0);
        EXPECT_TRUE(row.sent.empty() || row.sent == fakepcsc::sentAPDUs());
        const long repeats = std::count(row.sent.begin(), row.sent.end(), whole) - 1;
        EXPECT_EQ(m_card->m_resets - 1, row.script.find(kDir) != row.script.npos ? 1 : std::max(repeats, 0L));
    }
}

TEST_F(PCSCSlotTest, GoesOnWithAnotherCardAndFailsWithoutOne)
{
    EXPECT_EQ(thrownBy([&] { send("00A40000"); }), "5|card not connected|PCSCSlot::SendCmdIntern");
    EXPECT_EQ(thrownBy([&] { m_slot->ResetChannel(); }), "5|card not connected|PCSCSlot::ResetChannel");
    EXPECT_EQ(thrownBy([&] { m_slot->CreateChannel(); }), "5||");
    connect("00A40000");
    EXPECT_EQ(send("00A40000"), "9000");
    insert("00A40000:6A82", "", true); // of the other protocol, in the middle of the work
    EXPECT_EQ(send("00A40000"), "6A82");
    fakepcsc::removeCard(m_reader);
    EXPECT_EQ(thrownBy([&] { send("00A40000"); }), "5|reset error|PCSCSlot::ResetChannel");
    EXPECT_TRUE(m_slot->isConnected());
    fakepcsc::failCall("SCardGetStatusChange", SCARD_F_COMM_ERROR, 1, 2);
    EXPECT_EQ(thrownBy([&] { m_slot->createToken(); }).substr(0, 3), "30|");
}

TEST_F(PCSCSlotTest, TracesCodesAndNeverCommands)
{
    TraceFile trace;
    connect();
    trace.news();
    fakepcsc::failCall("SCardTransmit", 1);
    EXPECT_NE(thrownBy([&] { send("0020008008313233343536FFFF"); }), "");
    fakepcsc::replaceAnswer({0x90});
    EXPECT_EQ(thrownBy([&] { send("00A40000"); }), "5|PCSC driver failed|PCSCSlot::SendCmdIntern");
    fakepcsc::failCall("SCardReconnect", SCARD_E_NO_SMARTCARD);
    EXPECT_NE(thrownBy([&] { m_slot->ResetChannel(); }), "");
    m_slot->CloseChannel();
    fakepcsc::failCall("SCardConnect", SCARD_E_NO_SERVICE);
    EXPECT_EQ(m_slot->createToken(), nullptr);
    EXPECT_EQ(
        trace.news(),
        Texts({"Send PCSC Command error:", "rc :\t 0x00000001", "PCSC driver failed:", "rc :\t 0x00000001",
               "maybe the extended APDU is not supported.", "PCSC driver failed:", "rc :\t 0x00000000",
               "reset error:", "rc :\t 0x8010000c", "=> SCardDisconnect return: SCARD_S_SUCCESS",
               "unknown card", "model: 5049565F43415244", "rc :\t 0x8010001d"}));
}

/// Historical bytes of some ATRs (after interface bytes, or cut short), and what the card is.
TEST_F(PCSCSlotTest, KnowsCardsByTheirHistoricalBytes)
{
    expectLines("unit/pcsc/PCSCSlotTest.txt", [&](const std::string& atr) {
        Blob type;
        const std::string os = m_slot->GetOS(hex(atr), type);
        return " " + PKCS11_blob2hex(getHistoricalBytes(hex(atr))) + " " + os + " " + toText(type);
    });
}

} // namespace
