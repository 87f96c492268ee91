#include "pkcs11/token/Hex.h"
#include "tests/support/ReaderFixture.h"

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
        const int sw = m_slot->SendCmd(PKCS11_hex2blob(command.c_str()), answer);
        char text[8];
        std::snprintf(text, sizeof text, "%04X ", static_cast<unsigned>(sw));
        return text + PKCS11_blob2hex(answer);
    }
    std::string sendFails(const std::string& command)
    {
        return thrownBy([&] { send(command); });
    }
};

std::string repeated(const std::string& byte, int count)
{
    std::string text;
    while (count-- > 0)
        text += byte;
    return text;
}

TEST_F(Transport, AppliesTheRulesForWrongLengthAndWaitingData)
{
    scripted::Card& card = connect();
    card.expect("00A40000", "6C10").expect("00A40000 10", "AA 9000");
    EXPECT_EQ(send("00A40000"), "9000 AA");
    card.expect("00B0000000", "6C08").expect("00B0000008", "6120").expect("00C0000020", "BB 6105");
    EXPECT_EQ(send("00B0000000"), "6105 BB");
    card.expect("00B0000000", "CC 6120");
    EXPECT_EQ(send("00B0000000"), "6120 CC");
    card.expect("00B0000000", "6C08").expect("00B0000008", "6C09");
    EXPECT_EQ(send("00B0000000"), "6C09 ");
    card.expect("00CB3FFF 000005 5C035FC105 0000", "6C20")
        .expect("00CB3FFF 000005 5C035FC105 0020", "DD 9000");
    EXPECT_EQ(send("00CB3FFF0000055C035FC1050000"), "9000 DD");
    char text[640];
    int length = 0;
    card.expect("00B00000F1", "EE 9000");
    EXPECT_EQ(m_slot->SendCmd(std::string("00b00000F1"), text, &length), 0x9000);
    EXPECT_EQ(std::string(text, static_cast<std::size_t>(length)), "\xEE");
}

TEST_F(Transport, FramesDataAndCollectsChainedAnswers)
{
    scripted::Card& card = connect();
    const Blob header = PKCS11_hex2blob("00870011");
    Blob answer;
    card.expect("00870011 02 AABB 07", "9000").expect("00870011 00", "9000");
    EXPECT_EQ(m_slot->Send(header, PKCS11_hex2blob("AABB"), 7, answer), 0x9000);
    EXPECT_EQ(m_slot->Send(header, Blob()), 0x9000);
    card.expect("00870011 01 AA", "01 6102").expect("00C0000002", "02 6100").expect("00C0000000", "03 6A82");
    EXPECT_EQ(m_slot->SendCard(header, PKCS11_hex2blob("AA")), PKCS11_hex2blob("010203"));
    card.expect("00870011 01 AA", "6C05");
    EXPECT_EQ(m_slot->SendCard(header, PKCS11_hex2blob("AA")), Blob());
    card.expect("00870011 00", "6102").expect("00C0000002", "02 6102").expect("00C0000002", "6102");
    EXPECT_EQ(m_slot->SendCmdChained(PKCS11_hex2blob("0087001100"), answer), 0x6102);
    EXPECT_EQ(answer, PKCS11_hex2blob("02"));

    const vcard::Bytes endless = scripted::bytes(repeated("55", 256) + "6100");
    for (int i = 0; i < 300; ++i)
        fakepcsc::replaceAnswer(endless);
    EXPECT_EQ(m_slot->SendCard(header, Blob()).size(), 0x10000);
}

TEST_F(Transport, ReconnectsOnceWhenTheCardIsNotWhatItWas)
{
    EXPECT_EQ(sendFails("00A40000"), "5|card not connected|PCSCSlot::SendCmdIntern");
    EXPECT_EQ(thrownBy([&] { m_slot->ResetChannel(); }), "5|card not connected|PCSCSlot::ResetChannel");
    EXPECT_EQ(thrownBy([&] { m_slot->CreateChannel(); }), "5||");
    scripted::Card& card = connect();
    for (const long result : {SCARD_W_RESET_CARD, SCARD_W_REMOVED_CARD, SCARD_W_UNRESPONSIVE_CARD}) {
        const int resets = card.resets();
        fakepcsc::clearCalls();
        fakepcsc::failCall("SCardTransmit", result);
        card.expect("00A40000", "9000");
        EXPECT_EQ(send("00A40000"), "9000 ");
        EXPECT_EQ(card.resets(), resets + 1);
        EXPECT_EQ(fakepcsc::sentAPDUs(), APDUs({"00A40000", "00A40000"}));
    }
    fakepcsc::failCall("SCardTransmit", SCARD_W_RESET_CARD, 1, 2);
    EXPECT_EQ(sendFails("00A40000"), "5|PCSC driver failed|PCSCSlot::SendCmdIntern");

    // Another card, of the other protocol, in the middle of the work.
    insert("", true).expect("00A40000", "6A82");
    EXPECT_EQ(send("00A40000"), "6A82 ");
    fakepcsc::removeCard(m_reader);
    EXPECT_EQ(sendFails("00A40000"), "5|reset error|PCSCSlot::ResetChannel");
    EXPECT_TRUE(m_slot->isConnected());
}

TEST_F(Transport, LeavesTheLengthOutWhereT0RefusesIt)
{
    scripted::Card& card = connect(true);
    const APDUs retried{"00A4040001AA00", "00A4040001AA"};
    for (const long result : {0x57L, SCARD_E_INVALID_PARAMETER}) {
        fakepcsc::clearCalls();
        fakepcsc::failCall("SCardTransmit", result);
        card.expect("00A40400 01 AA", "9000");
        EXPECT_EQ(send("00A4040001AA00"), "9000 ");
        EXPECT_EQ(fakepcsc::sentAPDUs(), retried);
    }
    fakepcsc::clearCalls();
    fakepcsc::failCall("SCardTransmit", SCARD_W_RESET_CARD);
    fakepcsc::failCall("SCardTransmit", 0x57, 2);
    card.expect("00A40400 01 AA", "9000");
    EXPECT_EQ(send("00A4040001AA00"), "9000 ");
    EXPECT_EQ(fakepcsc::sentAPDUs(), APDUs({retried[0], retried[0], retried[1]}));

    m_slot->CloseChannel();
    connect();
    fakepcsc::failCall("SCardTransmit", 0x57);
    EXPECT_EQ(sendFails("00A4040001AA00"), "5|PCSC driver failed|PCSCSlot::SendCmdIntern");
    EXPECT_EQ(fakepcsc::sentAPDUs(), APDUs({retried[0]}));
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
         {std::string("6B00"), std::string("9000"), repeated("22", 240) + "9000", std::string("2222 6282")}) {
        card.expect("00B00000F1", full + "9000").expect("00B000F1F1", end);
        EXPECT_EQ(m_slot->ReadBinary(file), 0x9000) << end;
        EXPECT_EQ(file.size(), 241 + static_cast<int>(scripted::bytes(end).size()) - 2) << end;
    }
    for (const char* refusal : {"6B00", "6A82"}) {
        card.expect("00B00000F1", refusal);
        EXPECT_EQ(m_slot->ReadBinary(file), PKCS11_hex2blob(refusal)[0] << 8 | PKCS11_hex2blob(refusal)[1]);
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
    card.expect("00B0000000", "6C40").expect("00B0000040", "6C40").expect("00B0000070", "010203 9000");
    card.expect("00B0000300", "6700").expect("00B0000370", "04 9000").expect("00B0000400", "05 6282");
    EXPECT_EQ(m_slot->ReadBinaryEF(), PKCS11_hex2blob("0102030405"));
    card.expect("00B0000000", "6700").expect("00B0000070", "6700");
    EXPECT_EQ(m_slot->ReadBinaryEF(), Blob());
    card.expect("00B0000000", "01 9000").expect("00B0000100", "6B00");
    EXPECT_EQ(m_slot->ReadBinaryEF(), PKCS11_hex2blob("01"));
    for (int i = 0; i < 129; ++i)
        fakepcsc::replaceAnswer(scripted::bytes(repeated("66", 256) + "9000"));
    EXPECT_EQ(m_slot->ReadBinaryEF().size(), 0x8000);
    EXPECT_EQ(fakepcsc::sentAPDUs().back(), "00B07F0000");
}

TEST_F(Transport, ReadsUnderT0WithTheLengthThatTheCardNames)
{
    connect(true).expect("00B0000000", "6C40").expect("00B0000040", "6C41").expect("00B0000041", "01 6282");
    EXPECT_EQ(m_slot->ReadBinaryEF(), PKCS11_hex2blob("01"));
}

TEST_F(Transport, SelectsApplicationsAndFiles)
{
    scripted::Card& card = connect();
    card.expect("00A40404 02 A001", "6A86").expect("00A40400 02 A001", "6F05 9000");
    EXPECT_EQ(m_slot->SelectAppl("A001"), PKCS11_hex2blob("6F05"));
    card.expect("00A40404 02 A001", "6A82")
        .expect("00A40204 02 5031", "9000")
        .expect("00A40204 02 5031", "6A82");
    EXPECT_EQ(thrownBy([&] { m_slot->SelectAppl("A001"); }), "30||");
    m_slot->SelectEF_IAS(0x5031);
    EXPECT_EQ(thrownBy([&] { m_slot->SelectEF_IAS(0x5031); }), "30|Select File|PCSCSlot::SelectEF");
}

} // namespace
