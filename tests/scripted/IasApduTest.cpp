#include "pkcs11/core/Mechanism.h"
#include "pkcs11/drivers/ias/IASToken.h"
#include "pkcs11/drivers/ias/PKCS15Objects.h"
#include "tests/support/ReaderFixture.h"
#include "tests/support/TlvText.h"

using namespace PKCS11;
using vcard::Bytes;

namespace {

const std::string kSelect = "00A40404 0C E828BD080FD2500000040301";
const std::string kEF = "00A40204 02";
const std::string kNotFound = "6A82";

std::string label(const std::string& text)
{
    return seq(text.empty() ? "" : tlv(0x0C, vcard::toHex(vcard::fromText(text))));
}
std::string pin(const std::string& name, const std::string& reference, const std::string& rules = "")
{
    return seq(label(name) + seq("040101") + tlv(0xA1, seq(rules + tlv(0x80, reference))));
}
const std::string kPin = pin("PIN", "0081", "020104 020108 02010C 0401FF") + pin("PUK", "82");
const std::string kPrivateKey =
    seq(label("K") + seq("0401AA 02020091") + tlv(0xA1, seq(seq("") + "02020400")));
const std::string kPublicKey = seq(label("K") + seq("0401AA") + tlv(0xA1, seq(seq(""))));
const std::string kCertificate = seq(label("C") + seq("") + tlv(0xA1, seq(seq("0402B001"))));

enum Operation { kSign, kDecrypt };

class IasApdus : public ReaderFixture {
protected:
    /// Expects the commands that select a file and read it.
    void expectFile(const std::string& fid, const std::string& content)
    {
        m_card->expect(kEF + fid, "9000").expect("00B0 0000 00", content + "9000");
        const auto end = static_cast<unsigned>(scripted::bytes(content).size());
        if (end > 0)
            m_card->expect("00B0" + vcard::toHex(vcard::twoBytes(end)) + "00", "6B00");
    }
    /// A token whose card has these PINs, a key pair, a certificate and no data directory.
    void build(const std::string& authentication = kPin, const std::string& serial = "",
               const std::string& privateKey = kPrivateKey)
    {
        m_card = &insert("0031B8644070141073940180829000");
        m_slot->CreateChannel();
        // The application is found once.
        m_card->expect("00A40404 0C A000000077010800070000FE", kNotFound);
        m_card->expect("00A40404 0E E828BD080FD25047656E65726963", kNotFound);
        m_card->expect(kSelect, "9000").expect(kEF + "5032", "9000").expect(kEF + "5031", "9000");
        m_slot->CheckIAS();
        m_card->expect(kSelect, "9000");
        expectFile("5032", seq("020100 0401AB 0C024D61 80024C61"));
        if (serial.empty()) {
            m_card->expect(kEF + "3F00", kNotFound).expect("00A4000C023F00", "6A86");
            m_card->expect(kEF + "D003", kNotFound);
        } else {
            m_card->expect(kEF + "3F00", "9000");
            expectFile("D003", serial);
        }
        m_card->expect(kSelect, "9000");
        expectFile("5031", tlv(0xA8, seq("04024401")) + tlv(0xA4, seq("04043F004402")) +
                               tlv(0xA0, seq("0406500050014403")) + tlv(0xA1, seq("04024404")));
        expectFile("4401", authentication);
        expectFile("4402", kCertificate);
        // The directory with the longest path stands in a DF.
        m_card->expect(kEF + "4403", kNotFound).expect("00A4000C025000", "9000");
        m_card->expect("00A4000C025001", "9000");
        expectFile("4403", privateKey);
        m_card->expect(kSelect, "9000");
        expectFile("4404", kPublicKey);
        m_token = std::make_unique<IASToken>(m_slot.get());
    }
    void login()
    {
        expectVerify("9000");
        m_token->Login(Blob("1234"));
    }
    void expectVerify(const std::string& status, const std::string& reference = "81")
    {
        m_card->expect(kSelect, "9000").expect("002000" + reference + "08 31323334FFFFFFFF", status);
    }
    /// The PIN and the security environment before the use of a private key.
    void expectMSE(const std::string& environment, const std::string& status = "9000")
    {
        expectVerify("9000");
        m_card->expect("002241" + environment + "91", status);
    }
    template <class Class>
    Class& object(unsigned long handle)
    {
        return dynamic_cast<Class&>(*m_token->getObjectList()->getObject(handle, true));
    }
    /// What the operation of the private key throws, or "0|length|".
    std::string run(Operation operation, CK_ULONG length, CK_ULONG room = 256)
    {
        auto& key = object<PKCS15PrivateKey>(3);
        Bytes data(length, 0xAA);
        Bytes out(256);
        return thrownBy([&] {
            if (operation == kSign)
                key.createSignMechanism(nullptr, nullptr)->sign(data.data(), length, out.data(), &room);
            else
                key.createDecryptMechanism(nullptr, nullptr)->decrypt(data.data(), length, out.data(), &room);
            throw PKCS11Exception(CKR_OK, std::to_string(room));
        });
    }

    scripted::Card* m_card = nullptr;
    std::unique_ptr<IASToken> m_token;
};

} // namespace

TEST_F(IasApdus, TheDirectoriesAreReadOnceAndTellTheTokenItsNames)
{
    build(kPin, "5A0A 01020304050607080910");
    const CK_TOKEN_INFO info = m_token->getInfo();
    const std::string texts(reinterpret_cast<const char*>(&info), 96); // label, maker, model, serial number
    const std::string blanks(30, ' ');
    EXPECT_EQ(texts, "La" + blanks + "Ma" + blanks + "IAS-ECC         0405060708091   ");
    EXPECT_EQ(std::tuple(info.ulMinPinLen, info.ulMaxPinLen, info.flags), std::tuple(4U, 12U, 13U));
    EXPECT_EQ(m_token->getObjectList()->highWater(), 3U);
    for (const auto& [file, serial] :
         {std::pair("5A03 AABBCC", "AABBCC"), {"5A04 AABBCC", "\xAB"}, {"5B01AA", "\xAB"}}) {
        m_token.reset();
        build(kPin, file);
        EXPECT_EQ(m_token->getSerialNumber(), Blob(serial)) << file;
    }
}

TEST_F(IasApdus, SigningSetsTheKeyAndCollectsTheAnswer)
{
    build();
    EXPECT_EQ(run(kSign, 1), "101||PKCS15MechanismSign::decrypt");
    login();
    EXPECT_EQ(run(kSign, 256), "21||");
    const std::string environment = "A4 06 8001028401";
    const std::string authenticate = "00880000 02 AAAA";
    expectMSE(environment);
    m_card->expect(authenticate, "0102 6102").expect("00C0000002", "0304 9000");
    EXPECT_EQ(run(kSign, 2, 128), "0|4|");
    EXPECT_EQ(run(kSign, 2, 127), "150||"); // the record tells the length: nothing is sent
}

TEST_F(IasApdus, AKeyWithoutAReferenceNeverStandsForAnother)
{
    build(kPin, "", seq(label("K") + seq("0401AA") + tlv(0xA1, seq(seq("") + "02020400"))));
    login();
    EXPECT_EQ(run(kSign, 2), "30||PKCS15MechanismSign::sign"); // nothing is sent
    EXPECT_EQ(run(kDecrypt, 2), "30||PKCS15MechanismDecrypt::decrypt");
    EXPECT_TRUE(object<PKCS15PrivateKey>(3).getModulus().empty());
    EXPECT_TRUE(object<PKCS15PublicKey>(2).getModulus().empty());
    CK_ULONG length = 0;
    object<PKCS15PrivateKey>(3).createSignMechanism(nullptr, nullptr)->sign(nullptr, 0, nullptr, &length);
    EXPECT_EQ(length, 128U);
}

TEST_F(IasApdus, LongCiphertextsGoInAChain)
{
    build();
    EXPECT_EQ(run(kDecrypt, 1), "101||PKCS15MechanismDecrypt::decrypt");
    login();
    const std::string environment = "B8 06 80011A8401";
    const std::string piece = "2A8086 FF 81" + vcard::toHex(Bytes(254, 0xAA));
    expectMSE(environment);
    m_card->expect("00" + piece, "DD 9000");
    EXPECT_EQ(run(kDecrypt, 254), "0|1|");
    expectMSE(environment);
    m_card->expect("10" + piece, "9000")
        .expect("002A8086 02 AAAA", "DD 6101")
        .expect("00C0000001", "EE 9000");
    EXPECT_EQ(run(kDecrypt, 256), "0|2|");
    expectMSE(environment);
    m_card->expect("10" + piece, "6884");
    EXPECT_EQ(run(kDecrypt, 256), "30||PKCS15MechanismDecrypt::decrypt");
}

TEST_F(IasApdus, PublicKeysAreAskedForByTheReferenceOfTheirPrivateKey)
{
    const std::string command = "00CB3FFF 0B 4D097007BFA001037F4980";
    const char* const answers[][2] = {{"70810C BFA0018107 7F4904 8102C1C2", "C1C2"},
                                      {"700C BFA00108 7F4905 8102C1C2 82", ""}, // broken off
                                      {"700A BFA00206 7F4903 8101C1", ""},      // another key
                                      {"7004 BFA00180", ""}};
    for (const auto& [answer, modulus] : answers) {
        build();
        m_card->expect(kSelect, "9000").expect(command, std::string(answer) + "9000");
        EXPECT_EQ(object<PKCS15PublicKey>(2).getModulus(), hex(modulus)) << answer;
        object<PKCS15PublicKey>(2).getPublicExponent(); // is known by now
        m_token.reset();
    }
    build();
    m_card->expect(kSelect, "9000").expect(command, "6A88");
    CK_ULONG length = 0;
    object<PKCS15PrivateKey>(3).createSignMechanism(nullptr, nullptr)->sign(nullptr, 0, nullptr, &length);
    EXPECT_EQ(length, 128U); // as the record tells
}

TEST_F(IasApdus, PinsHaveALength)
{
    build();
    const Blob pin("1234");
    const Blob tooLong("123456789");
    EXPECT_EQ(thrownBy([&] { m_token->VerifyPIN(tooLong); }), "A2|wrong PIN length|IASToken::VerifyPin");
    expectVerify("9000");
    EXPECT_EQ(thrownBy([&] { m_token->SetPIN(pin, tooLong); }), "A2|wrong PIN length|IASToken::ChangePIN");
    m_token->Logout();
    EXPECT_EQ(thrownBy([&] { m_token->InitPIN(pin); }), "101||");
    expectVerify("9000", "82");
    m_token->LoginSO(pin);
    expectVerify("9000", "82");
    EXPECT_EQ(thrownBy([&] { m_token->InitPIN(tooLong); }), "A2|wrong PIN length|IASToken::ChangePIN");
    expectVerify("9000", "82");
    m_card->expect("002C0281 08 37373737FFFFFFFF", "9000");
    m_token->InitPIN(Blob("7777"));
    EXPECT_EQ(m_token->userPin(), Blob("7777"));
}

TEST_F(IasApdus, AuthenticationObjectsTellUserAndAdministrator)
{
    const std::string noReference = seq(label("x") + seq("") + tlv(0xA1, seq("0401FF")));
    const std::string rows[][3] = {
        // objects, references of user and administrator
        {pin("PIN", "81") + pin("Other", "82") + pin("PUK", "83"), "81", "82"},
        {pin("MY PUK", "82") + pin("", "81"), "81", "82"},
        {pin("SO PIN", "82"), "", "82"},
        {noReference + pin("PIN", "81"), "", "81"},
        {tlv(0xA0, label("x") + seq("")) + pin("", "018205"), "82", ""},
    };
    for (const auto& row : rows) {
        build(row[0]);
        for (const int role : {1, 2}) {
            const std::string& reference = row[role];
            const auto verify = [&](const Blob& pin) {
                return thrownBy([&] { role == 1 ? m_token->VerifyPIN(pin) : m_token->VerifySOPIN(pin); });
            };
            // Without padding a PIN goes out as it is, but never empty.
            if (!reference.empty())
                m_card->expect(kSelect, "9000").expect("002000" + reference + "04 31323334", "9000");
            EXPECT_EQ(verify(Blob("1234")), reference.empty() ? "102||" : "");
            EXPECT_EQ(verify(Blob()), reference.empty() ? "102||" : "A2||");
        }
        m_token.reset();
    }
}

TEST_F(IasApdus, ValuesAreReadOnceAndOnlyFromTheirOwnFile)
{
    build();
    auto& certificate = object<PKCS15Certificate>(1);
    m_card->expect(kSelect, "9000").expect(kEF + "B001", kNotFound);
    EXPECT_EQ(thrownBy([&] { certificate.getValue(); }), "30|Select File|IASToken::readValue");
    m_card->expect(kSelect, "9000");
    expectFile("B001", "3003020105 FFFF");
    EXPECT_EQ(certificate.getValue(), PKCS11_hex2blob("3003020105"));
    EXPECT_TRUE(certificate.getSubject().empty());
    EXPECT_EQ(certificate.getObjectSize(), 5U);
}
