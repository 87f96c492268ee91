/// Tests of an application over fake readers and simulated cards.
#pragma once

#include "pkcs11/desktop/DesktopEdition.h"
#include "tests/support/Application.h"
#include "tests/support/ByteText.h"

#include <gtest/gtest.h>

class CryptokiFixture : public ::testing::Test, protected Application {
protected:
    using Application::Bytes;
    /// True while the tests run on the edition for desktop programs.
    static bool isDesktop() { return &PKCS11::Edition::current() == &PKCS11::DesktopEdition::instance(); }

    /// The card's answer to command number `nth` from now, in the notation of ByteText.h.
    static void answer(const std::string& text, int nth) { fakepcsc::replaceAnswer(bytes(text), nth); }

    void SetUp() override { fakepcsc::reset(); }
    void TearDown() override
    {
        C_Finalize(nullptr);
        EXPECT_EQ(fakepcsc::open().handles, 0);
    }
};
