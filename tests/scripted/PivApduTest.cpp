#include "pkcs11/PKCS11Exception.h"
#include "pkcs11/core/Mechanism.h"
#include "pkcs11/drivers/piv/PIVJavaPrivateKey.h"
#include "pkcs11/drivers/piv/PIVJavaPublicKey.h"
#include "pkcs11/drivers/piv/PIVJavaToken.h"
#include "pkcs11/pcsc/PCSCSlot.h"
#include "tests/fakepcsc/FakePCSC.h"
#include "tests/support/ScriptedCard.h"
#include "tools/vcard/Bytes.h"
#include "tools/vcard/Keys.h"

using namespace PKCS11;
using vcard::Bytes;

namespace {

const std::string kSelect = "00A40400 0B A000000308000010000100";
const std::string kVerify = "00200080 08 313233343536FFFF";

class PivApdus : public ::testing::Test {
protected:
    void SetUp() override
    {
        fakepcsc::reset();
        fakepcsc::insertCard(fakepcsc::addReader("R"), m_card);
        m_system.reset(CreatePCSCSystem(nullptr));
        m_slot = std::make_unique<PCSCSlot>(nullptr, m_system.get(), "R");
    }
    /// The card has one key, 9A; the other containers fail in several ways.
    void build(int bits)
    {
        m_card->expect(kSelect, "9000");
        const Bytes object =
            vcard::tlv(0x53, vcard::tlv(0x70, vcard::RsaKey::get(bits).certificate("Holder")));
        std::string command = "00CB3FFF 05 5C035FC105 00";
        for (size_t at = 0; at < object.size(); at += 200) {
            const size_t end = std::min(object.size(), at + 200);
            m_card->expect(command, vcard::toHex({object.begin() + static_cast<long>(at),
                                                  object.begin() + static_cast<long>(end)}) +
                                        (end < object.size() ? "61C8" : "9000"));
            command = "00C00000 C8";
        }
        m_card->expect("00CB3FFF 05 5C035FC10A 00", "6A82").expect("00CB3FFF 05 5C035FC10B 00", "5300 9000");
        m_card->expect("00CB3FFF 05 5C035FC101 00", "6982");
        m_token = std::make_unique<PIVJavaToken>(m_slot.get());
    }
    void login()
    {
        m_card->expect(kVerify, "9000");
        m_token->Login(Blob("123456"));
    }
    template <class Key>
    Key& key(unsigned long handle)
    {
        return dynamic_cast<Key&>(*m_token->getObjectList()->getObject(handle, true));
    }
    /// The length of the signature, or the code and where-text of the exception.
    std::string sign(const std::string& data = "AABB", CK_ULONG room = 256)
    {
        Bytes in = scripted::bytes(data);
        Bytes out(room + 1);
        return failure([&] {
            key<PIVJavaPrivateKey>(3)
                .createSignMechanism(nullptr, nullptr)
                ->sign(in.data(), in.size(), out.data(), &room);
            throw PKCS11Exception(CKR_OK, std::to_string(room));
        });
    }
    template <class Call>
    static std::string failure(Call call)
    {
        try {
            call();
            return "";
        } catch (const PKCS11Exception& e) {
            return (e.value() == 0 ? "" : std::to_string(e.value())) + e.what() + e.where();
        }
    }
    static std::string code(CK_RV rv, const std::string& texts = "") { return std::to_string(rv) + texts; }

    std::shared_ptr<scripted::Card> m_card = std::make_shared<scripted::Card>();
    std::unique_ptr<PCSCSystem> m_system;
    std::unique_ptr<PCSCSlot> m_slot;
    std::unique_ptr<PIVJavaToken> m_token;
};

} // namespace

TEST_F(PivApdus, ConstructionSelectsAndReadsTheContainersInOrder)
{
    build(1024);
    EXPECT_EQ(m_token->getObjectList()->highWater(), 3U);
    m_card->expect("80A3000000", "6D00");
    m_token->ResetSecurity();
}

TEST_F(PivApdus, SelectionHasASecondFormAndItsFailureOrTheReadersEndsTheToken)
{
    m_card->expect(kSelect, "6A86").expect("00A4040C" + kSelect.substr(8), "6104");
    m_card->expect("00C00000 04", "61026102").expect("00C00000 02", "4F00 6283");
    EXPECT_EQ(failure([&] { PIVJavaToken token(m_slot.get()); }),
              code(CKR_DEVICE_ERROR, "error select appPIVJavaToken::SelectApp"));
    m_card->expect(kSelect, "9001");
    fakepcsc::failCall("SCardTransmit", 1, 2);
    EXPECT_EQ(failure([&] { PIVJavaToken token(m_slot.get()); }).substr(0, 1), code(CKR_GENERAL_ERROR));
    EXPECT_EQ(fakepcsc::openHandles(), 0);
}

TEST_F(PivApdus, AShortKeySignsInOnePieceAndACardsErrorIsAnEmptyResult)
{
    build(1024);
    EXPECT_EQ(sign(), code(CKR_USER_NOT_LOGGED_IN, "PIVJavaMechanismSign::sign"));
    login();
    EXPECT_EQ(sign("AABB", 127), code(CKR_BUFFER_TOO_SMALL)); // nothing is sent
    std::string block = "0001";
    for (int i = 0; i < 123; ++i)
        block += "FF";
    const std::string command = "0087069A 88 7C8185 818180 " + block + "00AABB 8200";
    const char* const answers[][2] = {
        {"7C0482021122 9000", "2"}, {"7C0482021122 9001", "2"}, {"6982", "0"}, {"7C0482 9000", "0"}};
    for (const auto& [answer, length] : answers) {
        m_card->expect(kVerify, "9000").expect(command, answer);
        EXPECT_EQ(sign(), length) << answer;
    }
    m_card->expect(kVerify, "9000").expect(command, "6104");
    m_card->expect("00C00000 04", "7C058203 6103").expect("00C00000 03", "112233 9000");
    EXPECT_EQ(sign(), "3");
    m_card->expect(kVerify, "63C1");
    EXPECT_EQ(sign(), code(CKR_PIN_INCORRECT));
}

TEST_F(PivApdus, ALongKeySignsInTwoPiecesThatMustBothSucceed)
{
    build(2048);
    login();
    const std::string data(2 * 253, 'A');
    const std::string field = "7C820106 81820100 000100" + data + "8200";
    const std::string first = "1087079A F9 " + field.substr(0, 2 * 249 + 2);
    const std::string last = "0087079A 11 " + field.substr(2 * 249 + 2);
    m_card->expect(kVerify, "9000").expect(first, "9001").expect(last, "7C03820177 9001");
    EXPECT_EQ(sign(data), "1");
    m_card->expect(kVerify, "9000").expect(first, "6883");
    const std::string failed = " command failedPIVJavaToken::GeneralAuth";
    EXPECT_EQ(sign(data), code(CKR_DEVICE_ERROR, "GENERAL AUTHENTICATE first" + failed));
    m_card->expect(kVerify, "9000").expect(first, "9000").expect(last, "6982");
    EXPECT_EQ(sign(data), code(CKR_DEVICE_ERROR, "GENERAL AUTHENTICATE last" + failed));
}

TEST_F(PivApdus, PinsArePaddedAndTheirStatusesTold)
{
    build(1024);
    const Blob pin("123456");
    const Blob tooLong("123456789");
    const auto set = [&] { m_token->SetPIN(pin, Blob("7777")); };
    for (const auto& [status, rv] : {std::pair("6983", CKR_PIN_LOCKED), std::pair("63C2", CKR_PIN_INCORRECT),
                                     std::pair("6700", CKR_PIN_INCORRECT)}) {
        m_card->expect(kVerify, status).expect("00200081" + kVerify.substr(8), status);
        EXPECT_EQ(failure([&] { m_token->VerifyPIN(pin); }), code(rv));
        EXPECT_EQ(failure([&] { m_token->VerifySOPIN(pin); }), code(rv));
    }
    EXPECT_EQ(failure([&] { m_token->VerifyPIN(tooLong); }), code(CKR_PIN_LEN_RANGE));
    EXPECT_EQ(failure([&] { m_token->SetPIN(tooLong, pin); }), code(CKR_PIN_LEN_RANGE));
    EXPECT_TRUE(m_token->userPin().empty());
    const std::string change = "00240080 10 313233343536FFFF 37373737FFFFFFFF";
    m_card->expect(kVerify, "9000").expect(change, "6A80");
    EXPECT_EQ(failure(set), code(CKR_DEVICE_ERROR));
    m_card->expect(kVerify, "9000").expect(change, "9000");
    EXPECT_EQ(failure(set), "");
    EXPECT_EQ(m_token->userPin(), Blob("7777"));
    m_card->expect(kVerify, "9000");
    EXPECT_EQ(failure([&] { m_token->SetPIN(pin, tooLong); }), code(CKR_PIN_INCORRECT));
    m_card->expect("00200081" + kVerify.substr(8), "9000").expect("00240081" + change.substr(8), "9000");
    m_token->SetSOPIN(pin, Blob("7777"));
    EXPECT_EQ(m_token->soPin(), Blob("7777"));
}

TEST_F(PivApdus, PublicKeyOperationsComputeNothing)
{
    build(1024);
    auto& publicKey = key<PIVJavaPublicKey>(2);
    const auto start = [&] { return publicKey.createEncryptMechanism(nullptr, nullptr); };
    EXPECT_EQ(failure(start),
              code(CKR_USER_NOT_LOGGED_IN, "PIVJavaMechanismEncrypt::PIVJavaMechanismEncrypt"));
    login();
    m_card->expect(kVerify, "9000").expect(kVerify, "9000");
    CK_BYTE byte = 1;
    CK_ULONG length = 1;
    start()->encrypt(&byte, 1, &byte, &length);
    EXPECT_EQ(length, 0U);
    EXPECT_EQ(failure([&] { publicKey.createVerifyMechanism(nullptr, nullptr)->verifyFinal(&byte, 1); }), "");
}
