#include "pkcs11/drivers/common/Output.h"
#include "pkcs11/drivers/common/PKCS1.h"
#include "pkcs11/token/Hex.h"
#include "tests/support/ReaderFixture.h"

using namespace PKCS11;

namespace {

Blob hex(const char* text)
{
    return PKCS11_hex2blob(text);
}

} // namespace

TEST(PKCS1, BlocksFillTheKeyAndGrowWhereTheFillerMust)
{
    EXPECT_EQ(makePKCS1Block(1, hex("AABB"), 8), hex("0001FFFFFF00AABB"));
    EXPECT_EQ(makePKCS1Block(2, hex("AABBCCDDEE"), 8), hex("000200AABBCCDDEE"));
    EXPECT_EQ(makePKCS1Block(2, hex("AABB"), 8, 4), hex("0002FFFFFFFF00AABB"));
}

TEST(PKCS1, StrippingTakesWhatFollowsTheFirstZeroBehindTheStart)
{
    const char* const cases[][2] = {{"0002FFEE00AA00BB", "AA00BB"},
                                    {"02FF00AA", "AA"},
                                    {"0002FFEE", "FFEE"},
                                    {"0000AA", "AA"},
                                    {"02FF00", ""},
                                    {"00", ""},
                                    {"02", ""},
                                    {"", ""}};
    for (const auto& [block, text] : cases)
        EXPECT_EQ(stripPKCS1Block(hex(block)), hex(text)) << block;
}

TEST(Output, NothingIsWrittenBeyondTheCallersRoom)
{
    CK_BYTE out[4] = {9, 9, 9, 9};
    CK_ULONG length = 2;
    EXPECT_EQ(thrownBy([&] { deliver(hex("010203"), out, &length); }), "150||");
    EXPECT_EQ(length, 3U);
    EXPECT_EQ(out[0], 9);
    EXPECT_EQ(thrownBy([&] { deliver(hex("010203"), out, &length); }), "");
    EXPECT_EQ(Blob(out, out + 4), hex("01020309"));
    EXPECT_TRUE(answersLength(nullptr, &length, 256));
    EXPECT_EQ(length, 256U);
    EXPECT_EQ(thrownBy([&] { answersLength(out, nullptr, 1); }), "7||");
    EXPECT_EQ(thrownBy([&] { inputOf(out, 4, 3); }), "21||");
    EXPECT_EQ(thrownBy([&] { inputOf(nullptr, 1); }), "7||");
}
