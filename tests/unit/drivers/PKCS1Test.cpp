#include "pkcs11/drivers/common/PKCS1.h"
#include "tests/support/ByteText.h"

#include <gtest/gtest.h>

using namespace PKCS11;

TEST(PKCS1Test, BlocksGrowWhereTheFillerMustAndLoseWhatStandsBeforeTheFirstZero)
{
    EXPECT_EQ(makePKCS1Block(2, hex("AABBCCDDEE"), 8), hex("000200AABBCCDDEE"));
    EXPECT_EQ(makePKCS1Block(2, hex("AABB"), 8, 4), hex("0002FFFFFFFF00AABB"));
    const char* const cases[][2] = {{"0002FFEE00AA00BB", "AA00BB"},
                                    {"02FF00AA", "AA"},
                                    {"0002FFEE", "FFEE"},
                                    {"02FFEE", "FFEE"},
                                    {"0000AA", "AA"},
                                    {"02FF00", ""},
                                    {"00", ""},
                                    {"02", ""},
                                    {"", ""}};
    for (const auto& [block, text] : cases)
        EXPECT_EQ(stripPKCS1Block(hex(block)), hex(text)) << block;
}
