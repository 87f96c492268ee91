#include "pkcs11/core/Mechanism.h"
#include "pkcs11/core/PrivateKey.h"
#include "pkcs11/core/PublicKey.h"
#include "pkcs11/core/X509PublicKeyCertificate.h"
#include "pkcs11/drivers/atrust/AcosTRUSTToken.h"
#include "pkcs11/drivers/common/CardObjects.h"
#include "pkcs11/drivers/edu/AcosEDUToken.h"
#include "pkcs11/token/Hex.h"
#include "tests/support/ReaderFixture.h"

using namespace PKCS11;
using vcard::Bytes;

namespace {

const std::string kSelectDF = "00A4040007A000000118454E";
const std::string kVerify = "00200081083132330000000000";
const std::string kMseSign = "002241A406840188800101";

class AcosApdus : public ReaderFixture {
protected:
    void expect(const std::string& script) { m_card.expectAll(script); }
    /// A card with key, certificate and cardholder file; file C003 is missing.
    AcosTRUSTToken& buildTrust()
    {
        expect(kSelectDF + " " + kSelectDF + " 00A4000002C001 00A4000002D001 00B0000000:01ABCD9000 " +
               kSelectDF + " 00A4000002C003:6A82");
        auto token = std::make_unique<AcosTRUSTToken>(m_slot.get());
        EXPECT_EQ(token->getObjectList()->highWater(), 4U);
        AcosTRUSTToken& built = *token;
        m_token = std::move(token);
        return built;
    }
    AcosEDUToken& buildEDU(int variant, const std::string& script)
    {
        m_token.reset(); // would close the new token's channel
        expect("00A4000002DFA3 " + script);
        auto token = std::make_unique<AcosEDUToken>(m_slot.get(), variant);
        AcosEDUToken& built = *token;
        m_token = std::move(token);
        return built;
    }
    template <class Class>
    Class& object(unsigned long handle)
    {
        return dynamic_cast<Class&>(*m_token->getObjectList()->getObject(handle, true));
    }
    /// Result bytes as hexadecimal text, or what was thrown.
    template <class Step>
    std::string run(Mechanism& operation, Step step, const Bytes& data, CK_ULONG room = 256)
    {
        Bytes in = data;
        Bytes out(room);
        const std::string thrown =
            thrownBy([&] { (operation.*step)(in.data(), in.size(), out.data(), &room); });
        out.resize(std::min<size_t>(room, out.size()));
        return thrown.empty() ? vcard::toHex(out) : thrown;
    }
    std::string sign(PrivateKey& key, const Bytes& data = {0xAA, 0xBB}, CK_ULONG room = 256)
    {
        return run(*key.createSignMechanism(nullptr, nullptr), &Mechanism::sign, data, room);
    }
    std::string decrypt(PrivateKey& key, const Bytes& data = {0xCC}, CK_MECHANISM_TYPE type = CKM_RSA_PKCS)
    {
        CK_MECHANISM mechanism{type, nullptr, 0};
        return run(*key.createDecryptMechanism(&mechanism, nullptr), &Mechanism::decrypt, data);
    }
    std::string encrypt(const Bytes& data = {0xDD})
    {
        return run(*object<PublicKey>(1).createEncryptMechanism(nullptr, nullptr), &Mechanism::encrypt, data);
    }

    scripted::Card& m_card = insert();
    std::unique_ptr<Token> m_token;
};

} // namespace

TEST_F(AcosApdus, TrustReadsItsFilesWhenTheyAreFirstAskedFor)
{
    AcosTRUSTToken& token = buildTrust();
    EXPECT_EQ(toText(token.getSerialNumber()), "01ABCD");
    // The size stands behind 80 02; the last chunk asks for the rest, and the padding is cut.
    const std::string chunk = std::string(222, '7');
    expect(kSelectDF + " 00A4000002B001:6F04800200739000 00B0000070:" + chunk +
           "559000 00B0007003:4400009000");
    const Blob modulus = object<CardPrivateKey>(2).getModulus();
    EXPECT_EQ(PKCS11_blob2hex(modulus), chunk + "5544");
    EXPECT_EQ(object<CardPublicKey>(1).getModulus(), modulus); // read once for both

    // A certificate loses what follows it; one that breaks off is no certificate. Without a size one read
    // must do.
    expect(kSelectDF + " 00A4000002C001:6F009000 00B0000000:30030201059999009000");
    EXPECT_EQ(PKCS11_blob2hex(object<X509PublicKeyCertificate>(3).getValue()), "3003020105");

    // Free memory is asked for once; the MF stays selected behind it.
    expect("00A40000023F00 80FA000000:12349000");
    EXPECT_EQ(token.getInfo().ulFreePrivateMemory, 0x1234U);
    EXPECT_EQ(token.getInfo().ulMaxPinLen, 8U);
    expect(kSelectDF + " 002281B803830188 002A868001DD00:00EE9000");
    EXPECT_EQ(encrypt(), "EE"); // no PIN is cached: the application is selected again
}

TEST_F(AcosApdus, TrustTakesLongDataAndEmptyAnswersAsTheyCome)
{
    AcosTRUSTToken& token = buildTrust();
    auto& key = object<PrivateKey>(2);
    EXPECT_EQ(sign(key), "101||AcosTRUSTMechanismDecrypt::decrypt");
    const std::string login = kSelectDF + " " + kVerify + " ";
    expect(login);
    token.Login(Blob("123"));
    // 300 bytes go out under an Lc of 2C; the card decides.
    expect(login + kMseSign + " 008810002C" + std::string(600, 'A') + "00:11229000");
    EXPECT_EQ(sign(key, Bytes(300, 0xAA)), "1122");
    expect(login + "002281B803840188 002A80860200CC00:339000");
    EXPECT_EQ(decrypt(key), "33");
    EXPECT_EQ(decrypt(key, Bytes(255, 1)), "21||");
    expect(login + "002281B803830188 002A868001DD00:9000");
    EXPECT_EQ(encrypt(), "");
    EXPECT_EQ(thrownBy([&] { token.Login(Blob("123456789")); }), "A2||");
    EXPECT_EQ(thrownBy([&] { token.SetPIN(Blob("123"), Blob("123456789")); }), "A2||");
    expect("00A4000C023F00 " + kSelectDF);
    token.ResetSecurity();
    EXPECT_TRUE(token.userPin().empty());
}

TEST_F(AcosApdus, EducationReadsKeysAndRecordsInTheirForms)
{
    const std::string record = ":300B04014C0402415004023100";
    const std::string readData = " 00A4000002000500 00B00000F1" + record + "9000";
    // File 0006 is missing; the objects of 0005 and 0007 both read 0005.
    const std::string data =
        " 00A4000002000500" + readData + " 00A4000002000600:6A82 00A4000002000700" + readData;
    AcosEDUToken& token =
        buildEDU(1, "00A4000002000100 00B0000000:C1C200009000 00B0000000:3008020300C1C3020103009000" + data +
                        " 00A4000002000300 00B00000F1" + record + "9000");
    EXPECT_EQ(toText(object<CardData>(4).getApplication()), "AP");
    EXPECT_EQ(toText(object<X509PublicKeyCertificate>(5).getID()), "AP");
    EXPECT_EQ(PKCS11_blob2hex(object<CardPublicKey>(1).getModulus()), "C1C2");  // bare, zero padded
    EXPECT_EQ(PKCS11_blob2hex(object<CardPrivateKey>(2).getModulus()), "C1C3"); // the INTEGER of a TLV
    const std::string verify = " 0020208308123456FFFFFFFFFF";
    expect(verify + verify + " 002241A406840181800101 0088100002AABB00:11229000");
    token.Login(Blob("123456"));
    auto& key = object<PrivateKey>(2);
    EXPECT_EQ(sign(key), "1122");
    EXPECT_EQ(sign(key, {0xAA, 0xBB}, 1), "150||"); // the modulus is known: nothing is sent
    EXPECT_EQ(sign(key, Bytes(256, 1)), "21||");    // would not fit its Lc
    EXPECT_EQ(thrownBy([&] { token.Login(Blob("12345678901234567")); }), "A2||");
    for (const char* pin : {"12a4", "12?", " 1", "1/2", "1:2"})
        EXPECT_EQ(thrownBy([&] { token.Login(Blob(pin)); }), "A1||") << pin;
}
