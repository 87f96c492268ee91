#include "pkcs11/token/Token.h"

#include "pkcs11/desktop/DesktopEdition.h"
#include "tests/support/ReaderFixture.h"
#include "tests/unit/core/Fakes.h"

#include <winscard.h>

using namespace PKCS11;

namespace {

/// Accepts the PIN "1234".
struct PlainToken final : FakeToken {
    using FakeToken::FakeToken;
    using Token::m_tokenInfo;
    CK_TOKEN_INFO getInfo() override { return m_tokenInfo; }
    bool isTokenHandleValid(long& rv) override { return Token::isTokenHandleValid(rv); }
    void VerifyPIN(const Blob& pin) override
    {
        if (pin != Blob("1234"))
            throw PKCS11Exception(CKR_PIN_INCORRECT);
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
