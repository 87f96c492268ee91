#include "tests/support/CryptokiFixture.h"
#include "tests/support/ScriptedCard.h"

#include <sstream>

namespace {

std::string repeat(const std::string& text, int count)
{
    return count == 0 ? "" : text + repeat(text, count - 1);
}

// Commands with their answers behind a colon, 9000 where there is none. A short key makes short scripts; the
// scripted card computes nothing.
const std::string kModulus = "C1" + repeat("5A", 15);
const std::string kFiller = repeat("FF", 11) + "00";
const std::string kResult = "00" + repeat("E7", 15);
const std::string kObject = "83022002850821000C0FFFFF0000860801010101010101018F";
const std::string kProbe = "00A404000BA000000308000010000100:6A82";
const std::string kApplication = " 00A4040C08D276000098C00000";
const std::string kDriverDF = " 00A4010002200100";
const std::string kKeyDF = kDriverDF + " 00A40100024B0100";
const std::string kPin = "002000810431323334";
const std::string kVerify = kApplication + " " + kPin;
const std::string kOpenKeyFile = kApplication + kKeyDF + " 00A4020002000100";
const std::string kReadKey =
    kOpenKeyFile + " 00B2010400:10001100" + kModulus + "9000 00B2020400:1000030100019000";
const std::string kReadKeyV50 =
    kApplication + kKeyDF + " 0047830008B80684010295018000:7F49178110" + kModulus + "82030100019000";
const std::string kRestore = "0022034000";
const std::string kUsePrivate = kVerify + kKeyDF + " " + kRestore + " 0022F1B80383010100";
const std::string kUseV50 = kKeyDF + " 002241B803840102";
const std::string kLoadKey = kKeyDF + " 80100000 00DA016E2C" + kObject + "121100" + kModulus +
                             " 00DA016E1F83022102850801000C0FFFFF0000860801010101010101018F050400010001"
                             " 80100000 0022034000 002201B80383010200";
const std::string kSignPso = " 002A808611000001" + kFiller + "AABB00:" + kResult + "9000";
const std::string kDecryptPso = " 002A80861100" + repeat("77", 16) + "00:" + kResult + "9000";
const std::string kRecord = " 00B00000F1:300D04014B040107040100040231009000";

class CardOSApduTest : public CryptokiFixture {
protected:
    static constexpr CK_OBJECT_HANDLE kPrivateKey = 1;
    static constexpr CK_OBJECT_HANDLE kPublicKey = 2;

    /// The first commands: a private key, a public key, and an entry that is cut off.
    static std::string construction(const std::string& version)
    {
        return " 00CA018202:" + version + "9000 00CA018A00:000123459000" + kApplication + kDriverDF +
               " 00A4020002000100 00B00000F1:010001014B01050000000000020001024B0104000103029000"
               " 00A4020002000200 00B00000F1:300A040154040153040231009000" +
               kApplication + kDriverDF + " 00A4020002010100" + kRecord + kApplication + kDriverDF +
               " 00A4020002010200" + kRecord;
    }
    /// Where the product goes on from what is selected and verified, the desktop edition does not trust other
    /// programs.
    static std::string reselection() { return isDesktop() ? kApplication : ""; }
    static std::string reverification() { return isDesktop() ? kVerify : ""; }
    void expect(const std::string& script) { m_card->expectAll(script); }
    void begin(const std::string& version, const std::string& script = kVerify)
    {
        expect(kProbe + construction(version) + script);
        ASSERT_NO_FATAL_FAILURE(start(m_card));
        ASSERT_TRUE(script != kVerify || login("1234") == CKR_OK);
    }
    Outcome signPkcs() { return sign(kPrivateKey, CKM_RSA_PKCS, m_data); }
    CK_RV verifyBlock(CK_MECHANISM_TYPE type, const std::string& block, const Bytes& data)
    {
        expect(reverification() + kLoadKey + " 002A868010" + repeat("77", 16) + "00:" + block + "9000");
        return verify(kPublicKey, type, data, Bytes(16, 0x77));
    }

    const Bytes m_data{0xAA, 0xBB};
    std::shared_ptr<scripted::Card> m_card = std::make_shared<scripted::Card>(scripted::atrWith("56346376"));
};

// The key is read once, before the card is made ready; the PIN comes again each time.
TEST_F(CardOSApduTest, PrivateKeyBeforeV50)
{
    begin("C808");
    expect(kReadKey + kUsePrivate + kSignPso);
    EXPECT_EQ(signPkcs().bytes, scripted::bytes(kResult));
    EXPECT_EQ(sign(kPrivateKey, CKM_RSA_PKCS, m_data, 15).rv, CKR_BUFFER_TOO_SMALL);
    expect(kUsePrivate + " 002A80861100" + repeat("00", 14) + "AABB00:6F00" + kUsePrivate);
    EXPECT_EQ(sign(kPrivateKey, CKM_RSA_X_509, m_data).rv, CKR_DEVICE_ERROR);
    EXPECT_EQ(sign(kPrivateKey, CKM_RSA_X_509, Bytes(17)).rv, CKR_DATA_LEN_RANGE);
    // Too much data: the block keeps eight bytes of filler and grows beyond the key.
    expect(kUsePrivate + " 002A80861B000001" + repeat("FF", 8) + "00" + repeat("22", 15) + "00:6700");
    EXPECT_EQ(sign(kPrivateKey, CKM_RSA_PKCS, Bytes(15, 0x22)).rv, CKR_DEVICE_ERROR);
    expect(kUsePrivate + kDecryptPso);
    EXPECT_EQ(decrypt(kPrivateKey, CKM_RSA_X_509, Bytes(16, 0x77)).bytes, Bytes(15, 0xE7));
}

TEST_F(CardOSApduTest, PublicKeyIsLoadedBeforeV50)
{
    begin("C808", "");
    EXPECT_EQ(encrypt(kPublicKey, CKM_RSA_PKCS, m_data).rv, CKR_USER_NOT_LOGGED_IN);
    EXPECT_EQ(verify(kPublicKey, CKM_RSA_PKCS, m_data, m_data), CKR_USER_NOT_LOGGED_IN);
    expect(kVerify);
    ASSERT_EQ(login("1234"), CKR_OK);
    const std::string pkcs = kLoadKey + " 002A8680100002" + kFiller + "AABB00:00" + kResult + "9000";
    expect(kReadKey + reverification() + pkcs + reverification() + kLoadKey + " 002A868002AABB00:00" +
           kResult + "9000");
    EXPECT_EQ(encrypt(kPublicKey, CKM_RSA_PKCS, m_data).bytes, scripted::bytes(kResult));
    EXPECT_EQ(encrypt(kPublicKey, CKM_RSA_X_509, m_data).bytes, scripted::bytes(kResult));
    EXPECT_EQ(verifyBlock(CKM_RSA_PKCS, "000001" + kFiller + "AABB", m_data), CKR_OK);
    for (const char* end : {"", "AA", "AABBCC", "AABC"})
        EXPECT_EQ(verifyBlock(CKM_RSA_PKCS, "000001" + kFiller + end, m_data), CKR_SIGNATURE_INVALID) << end;
    for (const char* block : {"", "0000", "000001FFFFFFFF"})
        EXPECT_EQ(verifyBlock(CKM_RSA_PKCS, block, {}), CKR_SIGNATURE_INVALID) << block;
    // Anything but filler leaves room for a cube that ends as it should.
    for (const char* filler : {"11FFFFFF", "FFFFFF11", "FFFF00FF"})
        EXPECT_EQ(verifyBlock(CKM_RSA_PKCS, std::string("000001") + filler + "00AABB", m_data),
                  CKR_SIGNATURE_INVALID)
            << filler;
    EXPECT_EQ(verifyBlock(CKM_RSA_X_509, "000000AABB", {0x00, 0xAA, 0xBB}), CKR_OK);
    EXPECT_EQ(verifyBlock(CKM_RSA_X_509, "000000AABBCC", m_data), CKR_SIGNATURE_INVALID);
}

TEST_F(CardOSApduTest, V50)
{
    begin("C901", "");
    // Neither a login nor the modulus.
    expect(reselection() + kUseV50 + " 002A868002AABB00:00" + kResult + "9000");
    EXPECT_EQ(encrypt(kPublicKey, CKM_RSA_X_509, m_data).bytes, scripted::bytes(kResult));
    EXPECT_EQ(signPkcs().rv, CKR_USER_NOT_LOGGED_IN);
    expect(kVerify + kReadKeyV50 + kVerify + kUseV50 + kSignPso + kVerify + kUseV50 + kDecryptPso);
    ASSERT_EQ(login("1234"), CKR_OK);
    EXPECT_EQ(signPkcs().bytes, scripted::bytes(kResult));
    EXPECT_EQ(decrypt(kPrivateKey, CKM_RSA_X_509, Bytes(16, 0x77)).bytes, scripted::bytes(kResult));
}

// The card may show the number with its sign; the key is no longer for it.
TEST_F(CardOSApduTest, ASignByteIsNoPartOfTheKeysLength)
{
    begin("C901");
    const std::string read =
        kApplication + kKeyDF + " 0047830008B80684010295018000:7F4918811100" + kModulus + "82030100019000";
    expect(read + kVerify + kUseV50 + kSignPso + kVerify + kUseV50 + read);
    EXPECT_EQ(sign(kPrivateKey, CKM_RSA_PKCS, m_data, 16).bytes, scripted::bytes(kResult));
    EXPECT_EQ(sign(kPrivateKey, CKM_RSA_PKCS, m_data, 15).length, 16);
    EXPECT_EQ(sign(kPrivateKey, CKM_RSA_X_509, Bytes(17)).rv, CKR_DATA_LEN_RANGE);
    EXPECT_EQ(number(kPublicKey, CKA_MODULUS_BITS), 128);
    CK_MECHANISM mechanism{CKM_RSA_PKCS, nullptr, 0};
    CK_ULONG length = 0;
    ASSERT_EQ(C_SignInit(m_session, &mechanism, kPrivateKey), CKR_OK);
    EXPECT_EQ(C_Sign(m_session, nullptr, 0, nullptr, &length), CKR_OK);
    EXPECT_EQ(length, 16);
}

// Length bytes wrap modulo 256, long data fields make extended commands, long answers come in parts.
TEST_F(CardOSApduTest, LongKeys)
{
    begin("C808");
    expect(kOpenKeyFile + " 00B2010400:10010100" + repeat("C3", 252) + "6104 00C0000004:C3C3C3C39000" +
           " 00B2020400:100001039000" + reverification() + kKeyDF + " 80100000 00DA016E1C" + kObject +
           "020100" + repeat("C3", 256) + ":6700");
    EXPECT_EQ(encrypt(kPublicKey, CKM_RSA_PKCS, m_data).rv, CKR_DEVICE_ERROR);
    expect(kUsePrivate + " 002A808600010100" + repeat("77", 256) + "0000:" + repeat("E7", 256) + "9000" +
           kUsePrivate + " 002A8086F900" + repeat("77", 248) + "00:0002FF00AA9000");
    EXPECT_EQ(decrypt(kPrivateKey, CKM_RSA_X_509, Bytes(256, 0x77)).bytes, Bytes(256, 0xE7));
    EXPECT_EQ(decrypt(kPrivateKey, CKM_RSA_PKCS, Bytes(248, 0x77)).bytes, Bytes(1, 0xAA));
}

TEST_F(CardOSApduTest, KeyFileWithoutRecords)
{
    begin("C808");
    expect(kOpenKeyFile + " 00B2010400:6981 00B00000F1:7F4916021100" + kModulus + "0201039000" +
           kOpenKeyFile + " 00B2010400:6981 00B00000F1:7F491602119000");
    EXPECT_EQ(attribute(kPublicKey, CKA_MODULUS).bytes, scripted::bytes(kModulus));
    EXPECT_EQ(attribute(kPublicKey, CKA_PUBLIC_EXPONENT).bytes, Bytes(1, 0x03));
    // Cut off: no modulus, and no signature.
    EXPECT_EQ(signPkcs().rv, CKR_DEVICE_ERROR);
}

TEST_F(CardOSApduTest, PinsHaveALength)
{
    begin("C808", "");
    for (const std::string& pin : {std::string(), std::string(256, '1')}) {
        EXPECT_EQ(login(pin), CKR_PIN_LEN_RANGE);
        EXPECT_EQ(setPin("1234", pin), CKR_PIN_LEN_RANGE);
    }
}

TEST_F(CardOSApduTest, ModelsOfTheTable)
{
    std::istringstream rows(
        "C802:M4.0 C803:M4.01 C804:M4.01a C806:V4.2 C807:V4.3 C808:V4.3b C809:V4.2b C80A:V4.2b "
        "C80B:V4.2c C80C:V4.2cDI C80D:V4.4 C901:V5.0 C805: C902:");
    for (std::string row; rows >> row;) {
        const std::string model = row.size() == 5 ? "unknown" : "CardOS " + row.substr(5);
        const bool isV50 = model == "CardOS V5.0";
        // Older cards are asked for the package with longer keys.
        const bool asks = row < "C807" || model == "unknown";
        const std::string package = row == "C804:M4.01a" ? "E1" : "E10901041C02C8068F010177";
        m_card = std::make_shared<scripted::Card>(scripted::atrWith("56346376"));
        begin(row.substr(0, 4), asks ? " 00CA018800:" + package + "9000" : "");
        const CK_TOKEN_INFO info = tokenInfo();
        EXPECT_EQ(std::string(std::begin(info.model), std::end(info.model)).find(model + "  "), 0) << row;
        EXPECT_EQ(info.manufacturerID[0], isV50 ? 'A' : 'S') << row;
        EXPECT_EQ(info.ulFreePrivateMemory, isV50 ? 0x12345 : 1) << row;
        CK_MECHANISM_INFO mechanism{};
        EXPECT_EQ(C_GetMechanismInfo(1, CKM_RSA_X_509, &mechanism), CKR_OK);
        EXPECT_EQ(mechanism.ulMaxKeySize, isV50 ? 4096 : package == "E1" ? 1024 : 2048) << row;
        TearDown();
        SetUp();
    }
}

} // namespace
