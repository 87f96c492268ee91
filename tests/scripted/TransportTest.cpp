#include "tests/support/ReaderFixture.h"
#include "tests/support/TlvText.h"

#include <winscard.h>

using namespace PKCS11;
using APDUs = std::vector<std::string>;

namespace {

class Transport : public ReaderFixture {
protected:
    /// Status word and data, both as text.
    std::string send(const std::string& command)
    {
        Blob answer;
        const int sw = m_slot->SendCmd(hex(command), answer);
        return vcard::toHex(vcard::twoBytes(static_cast<unsigned>(sw))) + PKCS11_blob2hex(answer);
    }
    std::string sendFails(const std::string& command)
    {
        return thrownBy([&] { send(command); });
    }
};

std::string repeated(const std::string& byte, int count)
{
    return count == 0 ? "" : byte + repeated(byte, count - 1);
}

TEST_F(Transport, FramesCommandsAndCollectsAnswers)
{
    scripted::Card& card = connect();
    // What goes to the card with its answers, and what is made of them.
    for (const auto& [script, answer] :
         {std::pair("00B0000000:6C08 00B0000008:6120 00C0000020:BB6105", "6105BB"),
          {"00B0000000:CC6120", "6120CC"},
          {"00B0000000:6C08 00B0000008:6C09", "6C09"}}) {
        card.expectAll(script);
        EXPECT_EQ(send("00B0000000"), answer);
    }
    card.expectAll("00A40000:6C10 00A4000010:AA9000");
    EXPECT_EQ(send("00A40000"), "9000AA");
    card.expectAll("00CB3FFF0000055C035FC1050000:6C20 00CB3FFF0000055C035FC1050020:DD9000");
    EXPECT_EQ(send("00CB3FFF0000055C035FC1050000"), "9000DD");
    char text[640];
    int length = 0;
    card.expectAll("00B00000F1:EE9000");
    EXPECT_EQ(m_slot->SendCmd(std::string("00b00000F1"), text, &length), 0x9000);
    EXPECT_EQ(std::string(text, static_cast<std::size_t>(length)), "\xEE");

    const Blob header = hex("00870011");
    Blob answer;
    card.expectAll("0087001102AABB07 0087001100");
    EXPECT_EQ(m_slot->Send(header, hex("AABB"), 7, answer), 0x9000);
    EXPECT_EQ(m_slot->Send(header, Blob()), 0x9000);
    card.expectAll("0087001101AA:016102 00C0000002:026100 00C0000000:036A82 0087001101AA:6C05");
    EXPECT_EQ(m_slot->SendCard(header, hex("AA")), hex("010203"));
    EXPECT_EQ(m_slot->SendCard(header, hex("AA")), Blob());
    card.expectAll("0087001100:6102 00C0000002:026102 00C0000002:6102");
    EXPECT_EQ(m_slot->SendCmdChained(hex("0087001100"), answer), 0x6102);
    EXPECT_EQ(answer, hex("02"));
    for (int i = 0; i < 300; ++i)
        fakepcsc::replaceAnswer(scripted::bytes(repeated("55", 256) + "6100"));
    EXPECT_EQ(m_slot->SendCard(header, Blob()).size(), 0x10000);
}

TEST_F(Transport, RepeatsForACardThatIsNotWhatItWasAndLeavesTheLengthOutWhereT0RefusesIt)
{
    const std::string whole = "00A4040001AA00", cut = "00A4040001AA";
    const std::string failed = "5|PCSC driver failed|PCSCSlot::SendCmdIntern";
    const struct {
        bool t0;
        std::vector<long> failures;
        std::string outcome;
        APDUs sent;
    } rows[] = {{false, {SCARD_W_RESET_CARD}, "9000", {whole, whole}},
                {false, {SCARD_W_REMOVED_CARD}, "9000", {whole, whole}},
                {false, {SCARD_W_UNRESPONSIVE_CARD}, "9000", {whole, whole}},
                {false, {SCARD_W_RESET_CARD, SCARD_W_RESET_CARD}, failed, {whole, whole}},
                {false, {0x57}, failed, {whole}},
                {true, {0x57}, "9000", {whole, cut}},
                {true, {SCARD_E_INVALID_PARAMETER}, "9000", {whole, cut}},
                {true, {SCARD_W_RESET_CARD, 0x57}, "9000", {whole, whole, cut}}};
    for (const auto& row : rows) {
        m_slot->CloseChannel();
        scripted::Card& card = connect(row.t0);
        fakepcsc::clearCalls();
        int nth = 0;
        for (const long failure : row.failures)
            fakepcsc::failCall("SCardTransmit", failure, ++nth);
        if (row.outcome == "9000")
            card.expectAll(row.sent.back());
        std::string outcome;
        outcome += thrownBy([&] { outcome = send(whole); });
        EXPECT_EQ(outcome, row.outcome);
        EXPECT_EQ(fakepcsc::sentAPDUs(), row.sent);
        EXPECT_EQ(fakepcsc::callCount("SCardReconnect"),
                  std::count(row.sent.begin(), row.sent.end(), whole) - 1);
    }
}

TEST_F(Transport, GoesOnWithAnotherCardAndFailsWithoutOne)
{
    EXPECT_EQ(sendFails("00A40000"), "5|card not connected|PCSCSlot::SendCmdIntern");
    EXPECT_EQ(thrownBy([&] { m_slot->ResetChannel(); }), "5|card not connected|PCSCSlot::ResetChannel");
    EXPECT_EQ(thrownBy([&] { m_slot->CreateChannel(); }), "5||");
    connect().expectAll("00A40000");
    EXPECT_EQ(send("00A40000"), "9000");
    insert("", true).expectAll("00A40000:6A82"); // of the other protocol, in the middle of the work
    EXPECT_EQ(send("00A40000"), "6A82");
    fakepcsc::removeCard(m_reader);
    EXPECT_EQ(sendFails("00A40000"), "5|reset error|PCSCSlot::ResetChannel");
    EXPECT_TRUE(m_slot->isConnected());
}

TEST_F(Transport, TracesCodesAndNeverCommands)
{
    connect();
    std::vector<std::string> lines;
    Logger::SetLogger(std::make_unique<TraceRecorder>(lines).release());
    fakepcsc::failCall("SCardTransmit", 1);
    EXPECT_NE(sendFails("0020008008313233343536FFFF"), "");
    fakepcsc::replaceAnswer({0x90});
    EXPECT_EQ(sendFails("00A40000"), "5|PCSC driver failed|PCSCSlot::SendCmdIntern");
    fakepcsc::failCall("SCardReconnect", SCARD_E_NO_SMARTCARD);
    EXPECT_NE(thrownBy([&] { m_slot->ResetChannel(); }), "");
    fakepcsc::removeCard(m_reader);
    m_slot->CloseChannel();
    fakepcsc::failCall("SCardConnect", SCARD_E_NO_SERVICE);
    EXPECT_EQ(thrownBy([&] { m_slot->CreateChannel(); }), "5||");
    Logger::FreeLogger();
    EXPECT_EQ(lines, APDUs({"80 Send PCSC Command error:", "80 rc :\t 0x00000001", "80 PCSC driver failed:",
                            "80 rc :\t 0x00000001", "80 maybe the extended APDU is not supported.",
                            "80 PCSC driver failed:", "80 rc :\t 0x00000000",
                            "80 reset error:", "80 rc :\t 0x8010000c",
                            "80 => SCardDisconnect return: SCARD_S_SUCCESS", "80 rc :\t 0x8010001d"}));
}

TEST_F(Transport, ReadsFilesInChunksOf241Bytes)
{
    scripted::Card& card = connect();
    const std::string full = repeated("11", 241);
    Blob file;
    for (const std::string& end :
         {std::string("6B00"), std::string("9000"), repeated("22", 240) + "9000", std::string("22226282")}) {
        card.expectAll("00B00000F1:" + full + "9000 00B000F1F1:" + end);
        EXPECT_EQ(m_slot->ReadBinary(file), 0x9000) << end;
        EXPECT_EQ(PKCS11_blob2hex(file), full + end.substr(0, end.size() - 4));
    }
    for (const int refusal : {0x6B00, 0x6A82}) {
        fakepcsc::replaceAnswer(vcard::twoBytes(static_cast<unsigned>(refusal)));
        EXPECT_EQ(m_slot->ReadBinary(file), refusal);
        EXPECT_TRUE(file.empty());
    }
    for (int i = 0; i < 17; ++i)
        fakepcsc::replaceAnswer(scripted::bytes(full + "9000"));
    EXPECT_EQ(m_slot->ReadBinary(file), 0x9000);
    EXPECT_EQ(file, Blob(4096, 0x11));
}

TEST_F(Transport, ReadsFilesOfCardsThatInsistOnALength)
{
    scripted::Card& card = connect();
    for (const auto& [script, file] :
         {std::pair("00B0000000:6C40 00B0000040:6C40 00B0000070:0102039000 00B0000300:6700 00B0000370:049000 "
                    "00B0000400:056282",
                    "0102030405"),
          {"00B0000000:6700 00B0000070:6700", ""},
          {"00B0000000:019000 00B0000100:6B00", "01"}}) {
        card.expectAll(script);
        EXPECT_EQ(m_slot->ReadBinaryEF(), hex(file));
    }
    for (int i = 0; i < 129; ++i)
        fakepcsc::replaceAnswer(scripted::bytes(repeated("66", 256) + "9000"));
    EXPECT_EQ(m_slot->ReadBinaryEF().size(), 0x8000);
    EXPECT_EQ(fakepcsc::sentAPDUs().back(), "00B07F0000");
    // Under T=0 with the length that the card names.
    fakepcsc::forgetPlans();
    m_slot->CloseChannel();
    connect(true).expectAll("00B0000000:6C40 00B0000040:6C41 00B0000041:016282");
    EXPECT_EQ(m_slot->ReadBinaryEF(), hex("01"));
}

TEST_F(Transport, SelectsApplicationsAndFiles)
{
    connect().expectAll("00A4040402A001:6A86 00A4040002A001:6F059000 00A4040402A001:6A82 00A40204025031 "
                        "00A40204025031:6A82");
    EXPECT_EQ(m_slot->SelectAppl("A001"), hex("6F05"));
    EXPECT_EQ(thrownBy([&] { m_slot->SelectAppl("A001"); }), "30||");
    m_slot->SelectEF_IAS(0x5031);
    EXPECT_EQ(thrownBy([&] { m_slot->SelectEF_IAS(0x5031); }), "30|Select File|PCSCSlot::SelectEF");
}

} // namespace
