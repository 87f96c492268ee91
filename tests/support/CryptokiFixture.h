/// Tests of an application over fake readers and simulated cards.
#pragma once

#include "pkcs11/desktop/DesktopEdition.h"
#include "pkcs11/frontend/trace/Names.h"
#include "tests/support/Application.h"
#include "tests/support/ByteText.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <initializer_list>
#include <sstream>

class CryptokiFixture : public ::testing::Test, protected Application {
protected:
    using Application::Bytes;
    /// True while the tests run on the edition for desktop programs.
    static bool isDesktop() { return &PKCS11::Edition::current() == &PKCS11::DesktopEdition::instance(); }

    /// The first that is not CKR_OK, of calls that come in this order.
    static CK_RV all(std::initializer_list<CK_RV> codes)
    {
        const auto* failure = std::find_if(codes.begin(), codes.end(), [](CK_RV rv) { return rv != CKR_OK; });
        return failure != codes.end() ? *failure : CKR_OK;
    }

    /// The card's answer to command number `nth` from now, in the notation of ByteText.h.
    static void answer(const std::string& text, int nth) { fakepcsc::replaceAnswer(bytes(text), nth); }

    /// "type: least-most flags; " of each, the sizes of keys in decimal.
    static std::string mechanisms()
    {
        std::ostringstream text;
        CK_MECHANISM_TYPE types[20] = {};
        CK_ULONG count = std::size(types);
        EXPECT_EQ(C_GetMechanismList(1, types, &count), CKR_OK);
        for (CK_ULONG i = 0; i < count; ++i) {
            CK_MECHANISM_INFO info{};
            EXPECT_EQ(C_GetMechanismInfo(1, types[i], &info), CKR_OK);
            text << std::hex << types[i] << ": " << std::dec << info.ulMinKeySize << "-" << info.ulMaxKeySize
                 << " " << std::hex << info.flags << "; ";
        }
        return text.str();
    }

    // What a wait says that has no slot to report.
    static constexpr char kNone[] = "CKR_NO_EVENT", kEnded[] = "CKR_CRYPTOKI_NOT_INITIALIZED";
    /// The slot that the wait reports, or its code.
    static std::string wait(CK_FLAGS flags = 0)
    {
        CK_SLOT_ID slot = 0;
        const CK_RV rv = C_WaitForSlotEvent(flags, &slot, nullptr);
        EXPECT_EQ(slot == 0, rv != CKR_OK);
        return slot != 0 ? std::to_string(slot) : PKCS11::rvName(rv);
    }
    static std::string poll() { return wait(CKF_DONT_BLOCK); }

    void SetUp() override { fakepcsc::reset(); }
    void TearDown() override
    {
        C_Finalize(nullptr);
        EXPECT_EQ(fakepcsc::open().handles, 0);
    }
};
