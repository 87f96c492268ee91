#include "pkcs11/token/Token.h"

#include "pkcs11/desktop/DesktopEdition.h"
#include "tests/support/ReaderFixture.h"
#include "tools/vcard/PivCard.h"

#include <winscard.h>

using namespace PKCS11;

namespace {

class TokenTest : public ReaderFixture {
protected:
    void insertPIV()
    {
        fakepcsc::insertCard(m_reader, std::make_shared<vcard::PivCard>());
        fakepcsc::clearCalls();
    }
    std::string fetch()
    {
        return thrownBy([this] { m_slot->getToken(); });
    }
};

TEST_F(TokenTest, FollowsTheCardInTheReader)
{
    EXPECT_EQ(fetch(), "E0||");
    insertPIV();
    Token* token = m_slot->getToken();
    fakepcsc::clearCalls();
    EXPECT_EQ(m_slot->getToken(), token);
    EXPECT_EQ(fakepcsc::calls().size(), 2U);
    EXPECT_EQ(m_slot->getTokenOfPresentCard(), token);
    EXPECT_EQ(fakepcsc::calls().size(), 3U);

    // A card that another program has reset is the same one to the desktop edition alone.
    fakepcsc::resetCard(m_reader);
    const bool isSame = &Edition::current() == &DesktopEdition::instance();
    EXPECT_EQ(m_slot->hasValidTokenHandle(), isSame);
    fetch();
    insertPIV();
    m_slot->getTokenOfPresentCard();
    EXPECT_EQ(fakepcsc::callCount("SCardConnect"), 1);

    const auto goneBefore = [this](const char* call) {
        fakepcsc::beforeCall(call, 1, [this] { fakepcsc::removeCard(m_reader); });
    };
    goneBefore("SCardGetStatusChange"); // between the two questions
    EXPECT_EQ(fetch(), "32||");
    EXPECT_EQ(fakepcsc::openHandles(), 0);
    EXPECT_EQ(fetch(), "E0||");
    insertPIV();
    fetch();
    goneBefore("SCardStatus");
    EXPECT_EQ(fetch(), "E0||");
    insert("0031c064b0f31000079000");
    EXPECT_EQ(fetch(), "E1||");
}

TEST_F(TokenTest, HasWhatNoDriverFillsAndRefusesAShortClass)
{
    insertPIV();
    Token* token = m_slot->getToken();
    EXPECT_EQ(std::memcmp(token->getInfo().utcTime, "unkown\0         ", 16), 0);
    CK_OBJECT_CLASS data = CKO_DATA;
    CK_ATTRIBUTE shortClass{CKA_CLASS, &data, sizeof data - 1};
    EXPECT_EQ(thrownBy([&] { token->createObject(&shortClass, 1); }), "13||");
    token->Login(Blob("123456"));
    token->Login(token->userPin());
    EXPECT_EQ(token->userPin(), Blob("123456"));
}

} // namespace
