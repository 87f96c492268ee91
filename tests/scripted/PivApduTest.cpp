#include "pkcs11/core/Mechanism.h"
#include "pkcs11/core/PrivateKey.h"
#include "pkcs11/core/PublicKey.h"
#include "pkcs11/drivers/piv/PIVJavaToken.h"
#include "tests/support/ReaderFixture.h"
#include "tools/vcard/Keys.h"

using namespace PKCS11;
using vcard::Bytes;

namespace {

const std::string kSelect = "00A40400 0B A000000308000010000100";
const std::string kVerify = "00200080 08 313233343536FFFF";
const std::string kVerifyPuk = "00200081 08 313233343536FFFF";
const std::string kGet = "00CB3FFF 05 5C035FC1";

class PivApdus : public ReaderFixture {
protected:
    /// The card has one key, 9A; the other containers fail in several ways.
    void build(int bits)
    {
        m_card.expect(kSelect, "9000");
        std::string object =
            vcard::toHex(vcard::tlv(0x53, vcard::tlv(0x70, vcard::RsaKey::get(bits).certificate("Holder"))));
        std::string command = kGet + "0500";
        for (; object.size() > 400; object.erase(0, 400), command = "00C00000 C8")
            m_card.expect(command, object.substr(0, 400) + "61C8");
        m_card.expect(command, object + "9000").expect(kGet + "0A00", "6A82");
        m_card.expect(kGet + "0B00", "53009000").expect(kGet + "0100", "6982");
        m_token = std::make_unique<PIVJavaToken>(m_slot.get());
        ASSERT_EQ(m_token->getObjectList()->highWater(), 3U);
    }
    void login()
    {
        m_card.expect(kVerify, "9000");
        m_token->Login(m_pin);
    }
    template <class Class>
    Class& object(unsigned long handle)
    {
        return dynamic_cast<Class&>(*m_token->getObjectList()->getObject(handle, true));
    }
    /// The length of the signature, or what was thrown.
    std::string sign(const std::string& data = "AABB", CK_ULONG room = 256)
    {
        Bytes in = vcard::fromHex(data);
        Bytes out(room);
        const auto operation = object<PrivateKey>(3).createSignMechanism(nullptr, nullptr);
        const std::string thrown =
            thrownBy([&] { operation->sign(in.data(), in.size(), out.data(), &room); });
        return thrown.empty() ? std::to_string(room) : thrown;
    }
    scripted::Card& m_card = insert();
    const Blob m_pin{"123456"};
    std::unique_ptr<PIVJavaToken> m_token;
};

} // namespace

TEST_F(PivApdus, SelectionHasASecondFormAndItsFailureOrTheReadersEndsTheToken)
{
    const auto construct = [&] { PIVJavaToken token(m_slot.get()); };
    m_card.expect(kSelect, "6A86").expect("00A4040C" + kSelect.substr(8), "6104");
    m_card.expect("00C0000004", "61026102").expect("00C0000002", "4F006283");
    EXPECT_EQ(thrownBy(construct), "30|error select app|PIVJavaToken::SelectApp");
    m_card.expect(kSelect, "9001");
    fakepcsc::failCall("SCardTransmit", 1, 2);
    EXPECT_EQ(thrownBy(construct), "5|PCSC driver failed|PCSCSlot::SendCmdIntern");
}

TEST_F(PivApdus, AShortKeySignsInOnePieceAndACardsErrorIsAnEmptyResult)
{
    build(1024);
    EXPECT_EQ(sign(), "101||PIVJavaMechanismSign::sign");
    const auto encryption = [&] { return object<PublicKey>(2).createEncryptMechanism(nullptr, nullptr); };
    EXPECT_EQ(thrownBy(encryption), "101||PIVJavaMechanismEncrypt::PIVJavaMechanismEncrypt");
    login();
    EXPECT_EQ(sign("AABB", 127), "150||"); // nothing is sent
    const std::string command =
        "0087069A 88 7C8185 818180 0001" + std::string(2UL * 123, 'F') + "00AABB 8200";
    for (const auto& [answer, length] :
         {std::pair("7C04820211229000", "2"), std::pair("7C04820211229001", "2"), std::pair("6982", "0"),
          std::pair("7C04829000", "0")}) {
        m_card.expect(kVerify, "9000").expect(command, answer);
        EXPECT_EQ(sign(), length) << answer;
    }
    m_card.expect(kVerify, "9000").expect(command, "6104");
    m_card.expect("00C0000004", "7C0582036103").expect("00C0000003", "1122339000");
    EXPECT_EQ(sign(), "3");
    // Encryption computes nothing but verifies the PIN.
    m_card.expect(kVerify, "9000").expect(kVerify, "63C1");
    CK_BYTE byte = 1;
    CK_ULONG length = 1;
    EXPECT_EQ(thrownBy([&] { encryption()->encrypt(&byte, 1, &byte, &length); }), "A0||");
}

TEST_F(PivApdus, ALongKeySignsInTwoPiecesThatMustBothSucceed)
{
    build(2048);
    login();
    const std::string data(2UL * 253, 'A'); // leaves no room for filler
    const std::string field = "7C82010681820100000100" + data + "8200";
    const std::string first = "1087079AF9" + field.substr(0, 2UL * 249);
    const std::string last = "0087079A11" + field.substr(2UL * 249);
    m_card.expect(kVerify, "9000").expect(first, "9001").expect(last, "7C038201779001");
    EXPECT_EQ(sign(data), "1");
    m_card.expect(kVerify, "9000").expect(first, "6883");
    EXPECT_EQ(sign(data), "30|GENERAL AUTHENTICATE first command failed|PIVJavaToken::GeneralAuth");
    m_card.expect(kVerify, "9000").expect(first, "9000").expect(last, "6982");
    EXPECT_EQ(sign(data), "30|GENERAL AUTHENTICATE last command failed|PIVJavaToken::GeneralAuth");
}

TEST_F(PivApdus, PinsOfBothUsersHaveALength)
{
    build(1024);
    const Blob tooLong("123456789");
    EXPECT_EQ(thrownBy([&] { m_token->SetPIN(tooLong, m_pin); }), "A2||"); // unsent
    EXPECT_TRUE(m_token->userPin().empty());
    const std::string change = "00240080 10 313233343536FFFF 37373737FFFFFFFF";
    m_card.expect(kVerify, "9000").expect(change, "9000");
    m_token->SetPIN(m_pin, Blob("7777"));
    EXPECT_EQ(m_token->userPin(), Blob("7777"));
    m_card.expect(kVerify, "9000");
    EXPECT_EQ(thrownBy([&] { m_token->SetPIN(m_pin, tooLong); }), "A0||");
    m_card.expect(kVerifyPuk, "9000").expect("00240081" + change.substr(8), "9000");
    m_token->SetSOPIN(m_pin, Blob("7777"));
    EXPECT_EQ(m_token->soPin(), Blob("7777"));
    m_card.expect("80A3000000", "6D00");
    m_token->ResetSecurity();
    EXPECT_TRUE(m_token->userPin().empty() && m_token->soPin().empty());
}
