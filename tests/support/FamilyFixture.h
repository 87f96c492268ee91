/// Tests of what an edition answers on the families of cards.
#pragma once

#include "tests/support/CryptokiFixture.h"
#include "tests/support/Families.h"

class FamilyFixture : public CryptokiFixture {
protected:
    /// A session on a card of the family where the user is logged in.
    void begin(const Family& family)
    {
        TearDown();
        SetUp();
        start(family.make());
        C_CloseAllSessions(1);
        setEduVariant(family.eduVariant);
        fakepcsc::resetCard(m_reader); // the token is made anew, with that variant
        fakepcsc::clearCalls();
        EXPECT_EQ(open(), CKR_OK);
        EXPECT_EQ(login("123456"), CKR_OK);
    }
    /// In a new session of the same user.
    void again()
    {
        C_CloseSession(m_session);
        EXPECT_EQ(open(), CKR_OK);
        login("123456");
    }
    /// After a blank.
    static std::string hex(CK_RV rv)
    {
        char code[20];
        std::snprintf(code, sizeof code, " %lx", static_cast<unsigned long>(rv));
        return code;
    }
};
