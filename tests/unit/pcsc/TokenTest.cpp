#include "pkcs11/token/Token.h"

#include "pkcs11/core/Data.h"
#include "pkcs11/core/Mechanism.h"
#include "pkcs11/desktop/DesktopEdition.h"
#include "tests/support/ReaderFixture.h"

#include <winscard.h>

using namespace PKCS11;

namespace {

/// Accepts the PIN "1234" and tells which object class it was asked for.
class PlainToken final : public Token {
public:
    using Token::m_tokenInfo;
    using Token::Token;
    CK_TOKEN_INFO getInfo() override { return m_tokenInfo; }
    MechanismList* getMechanismList() override { return nullptr; }
    void InitPIN(const Blob&) override {}
    void SetPIN(const Blob&, const Blob&) override {}
    void SetSOPIN(const Blob&, const Blob&) override {}
    std::unique_ptr<Object> createPublicKey(CK_ATTRIBUTE*, CK_ULONG) override { return asked("public key"); }
    std::unique_ptr<Object> createPrivateKey(CK_ATTRIBUTE*, CK_ULONG) override
    {
        return asked("private key");
    }
    std::unique_ptr<Object> createCertificate(CK_ATTRIBUTE*, CK_ULONG) override
    {
        return asked("certificate");
    }
    std::unique_ptr<Object> createData(CK_ATTRIBUTE*, CK_ULONG) override { return asked("data"); }
    std::unique_ptr<Object> createSecretKey(CK_ATTRIBUTE*, CK_ULONG) override { return asked("secret key"); }
    std::unique_ptr<Mechanism> createMechanismDigest(CK_MECHANISM*) override { return nullptr; }
    std::unique_ptr<MechanismKeygen> createMechanismGenerateKeyPair(CK_MECHANISM*) override
    {
        return nullptr;
    }
    std::unique_ptr<MechanismKeygen> createMechanismGenerateKey(CK_MECHANISM*) override { return nullptr; }
    void seedRandom(CK_BYTE*, CK_ULONG) override {}
    void generateRandom(CK_BYTE*, CK_ULONG) override {}
    void VerifyPIN(const Blob& pin) override
    {
        if (pin != Blob("1234"))
            throw PKCS11Exception(CKR_PIN_INCORRECT);
    }
    void VerifySOPIN(const Blob& pin) override { VerifyPIN(pin); }

    std::string m_asked;

private:
    std::unique_ptr<Object> asked(const char* what)
    {
        m_asked = what;
        return nullptr;
    }
};

/// A slot over the fixture's reader whose cards all get a PlainToken, unless it is told otherwise.
class PlainSlot final : public Slot {
public:
    explicit PlainSlot(PCSCSlot& reader) : Slot(nullptr), m_reader(reader) {}
    ~PlainSlot() override { deleteToken(); }
    bool isTokenPresent() override { return !m_gone && m_reader.isTokenPresent(); }
    std::unique_ptr<Token> createToken() override
    {
        auto token = m_unknown ? nullptr : std::make_unique<PlainToken>(&m_reader);
        if (token)
            token->Login(Blob("1234"));
        ++m_created;
        return token;
    }
    CK_RV InitToken(CK_BYTE*, CK_ULONG, CK_BYTE*) override { return CKR_OK; }
    const std::string& GetName() const override { return m_reader.GetName(); }

    PCSCSlot& m_reader;
    bool m_gone = false;
    bool m_unknown = false;
    int m_created = 0;
};

template <std::size_t N>
std::string text(const CK_UTF8CHAR (&field)[N])
{
    return std::string(field, field + N);
}

class TokenTest : public ReaderFixture {};

TEST_F(TokenTest, StartsWithTheDefaultInformation)
{
    PlainToken token(nullptr);
    const CK_TOKEN_INFO info = token.getInfo();
    const std::string word = std::string("unkown") + '\0' + "         ";
    EXPECT_EQ(text(info.label), std::string("unkown token") + '\0' + std::string(19, ' '));
    EXPECT_EQ(text(info.manufacturerID), word + std::string(16, ' '));
    EXPECT_EQ(text(info.model) + text(info.serialNumber) + text(info.utcTime), word + word + word);
    EXPECT_EQ(info.flags + info.ulSessionCount + info.ulRwSessionCount, 0U);
    EXPECT_EQ(info.ulMaxSessionCount * 100 + info.ulMaxRwSessionCount, 10010U);
    EXPECT_EQ(info.ulMaxPinLen * 100 + info.ulMinPinLen, 1004U);
    for (const CK_ULONG memory : {info.ulTotalPublicMemory, info.ulFreePublicMemory,
                                  info.ulTotalPrivateMemory, info.ulFreePrivateMemory})
        EXPECT_EQ(memory, CK_UNAVAILABLE_INFORMATION);
    long rv = 5;
    EXPECT_FALSE(token.isTokenHandleValid(rv));
    EXPECT_EQ(rv, 5);
}

TEST_F(TokenTest, KeepsALoginUntilItsLogout)
{
    PlainToken token(nullptr);
    EXPECT_EQ(thrownBy([&] { token.Login(Blob("0000")); }), "A0||");
    EXPECT_FALSE(token.isUserLoggedIn());
    EXPECT_TRUE(token.userPin().empty());
    token.Login(Blob("1234"));
    token.Login(token.userPin());
    token.LoginSO(Blob("1234"));
    EXPECT_TRUE(token.isUserLoggedIn() && token.isSOLoggedIn());
    EXPECT_EQ(token.userPin(), Blob("1234"));
    EXPECT_EQ(token.soPin(), Blob("1234"));
    token.Logout();
    EXPECT_FALSE(token.isUserLoggedIn() || token.isSOLoggedIn());
    EXPECT_TRUE(token.userPin().empty() && token.soPin().empty());
}

TEST_F(TokenTest, TakesAnEmptyPinOnlyBehindAPinPad)
{
    PlainToken token(nullptr);
    token.m_tokenInfo.flags = CKF_LOGIN_REQUIRED | CKF_USER_PIN_INITIALIZED;
    token.Login(Blob("1234"));
    EXPECT_EQ(thrownBy([&] { token.CheckPin(Blob()); }), "101||");
    token.setSpeFlag();
    EXPECT_EQ(token.getInfo().flags, CK_FLAGS{CKF_PROTECTED_AUTHENTICATION_PATH});
    token.CheckPin(Blob());
    token.CheckPin(Blob("1234"));
    EXPECT_EQ(thrownBy([&] { token.CheckPin(Blob("1")); }), "A0||");
    token.Logout();
    EXPECT_EQ(thrownBy([&] { token.CheckPin(Blob()); }), "101||");
}

TEST_F(TokenTest, HidesPrivateObjectsAndAsksTheFactoryOfTheClass)
{
    PlainToken token(nullptr);
    CK_BBOOL yes = CK_TRUE;
    CK_ATTRIBUTE isPrivate{CKA_PRIVATE, &yes, sizeof yes};
    auto object = std::make_unique<Data>();
    object->setAttribute(&isPrivate, 1);
    const unsigned long handle = token.getObjectList()->put(std::move(object));
    EXPECT_NE(token.getObject(handle), nullptr);
    token.m_tokenInfo.flags = CKF_LOGIN_REQUIRED;
    EXPECT_EQ(thrownBy([&] { token.getObject(handle); }).substr(0, 4), "101|");
    token.Login(Blob("1234"));
    EXPECT_NE(token.getObject(handle), nullptr);

    const char* const classes[] = {"data",       "certificate", "public key", "private key",
                                   "secret key", "13||",        "13||"};
    for (CK_OBJECT_CLASS type = 0; type < 7; ++type) {
        CK_ATTRIBUTE attributes[] = {isPrivate, {CKA_CLASS, &type, sizeof type}};
        const std::string failure = thrownBy([&] { token.createObject(attributes, 2); });
        EXPECT_EQ(failure.empty() ? token.m_asked : failure, classes[type]);
    }
    CK_OBJECT_CLASS data = CKO_DATA;
    CK_ATTRIBUTE shortClass{CKA_CLASS, &data, sizeof data - 1};
    EXPECT_EQ(thrownBy([&] { token.createObject(&shortClass, 1); }), "13||");
    EXPECT_EQ(thrownBy([&] { token.createObject(&isPrivate, 1); }), "13||");
    EXPECT_EQ(thrownBy([&] { token.copyObject(nullptr, nullptr, 0); }), "54||");
}

TEST_F(TokenTest, FollowsTheCardInTheReader)
{
    PlainSlot slot(*m_slot);
    const auto fetchFails = [&] { return thrownBy([&] { slot.getToken(); }); };
    EXPECT_EQ(fetchFails(), "E0||");
    insert();
    Token* token = slot.getToken();
    EXPECT_FALSE(token->isUserLoggedIn());
    EXPECT_TRUE(token->userPin().empty());
    fakepcsc::clearCalls();
    EXPECT_EQ(slot.getToken(), token);
    EXPECT_EQ(fakepcsc::calls().size(), 2U);
    EXPECT_EQ(slot.getTokenOfPresentCard(), token);
    EXPECT_EQ(fakepcsc::calls().size(), 3U);
    EXPECT_EQ(slot.m_created, 1);

    // A card that another program has reset is the same one to the desktop edition alone.
    fakepcsc::resetCard(m_reader);
    const bool isSame = &Edition::current() == &DesktopEdition::instance();
    EXPECT_EQ(slot.hasValidTokenHandle(), isSame);
    slot.getToken();
    insert(); // another card
    slot.getTokenOfPresentCard();
    EXPECT_EQ(slot.m_created, isSame ? 2 : 3);
    EXPECT_EQ(fakepcsc::openHandles(), 1);

    slot.m_gone = true; // between the two questions
    EXPECT_EQ(fetchFails(), "32||");
    EXPECT_EQ(fetchFails(), "E0||");
    EXPECT_EQ(fakepcsc::openHandles(), 0);
    slot.m_gone = false;
    slot.getToken();
    fakepcsc::removeCard(m_reader);
    EXPECT_EQ(fetchFails(), "E0||");
    insert();
    slot.m_unknown = true;
    EXPECT_EQ(fetchFails(), "E1||");
}

} // namespace
