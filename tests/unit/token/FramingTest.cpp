#include "pkcs11/token/Framing.h"
#include "tests/support/ByteText.h"
#include "tests/support/Failure.h"

using namespace PKCS11;

TEST(FramingTest, TLVObjectsLoseTheirPadding)
{
    const std::pair<const char*, const char*> cases[] = {{"000000", ""},
                                                         {"3003020105", "3003020105"},
                                                         {"3003020105000000", "3003020105"},
                                                         {"3000A18101AAAFFF", "3000A18101AA"},
                                                         {"30003080AA", "30003080AA"},
                                                         {"04013001", ""},
                                                         {"3000B00101", "3000"},
                                                         {"30003085FFFFFFFFFF", "3000"},
                                                         {"3000308401000000AA", "3000"},
                                                         {"30003082", "3000"}};
    for (const auto& [in, out] : cases)
        EXPECT_EQ(PKCS11_blob2hex(MakeTLVCoded(hex(in))), out) << in;
}

TEST(FramingTest, ListsCommandsAndObjectsHoldTheirLengths)
{
    for (const char* in : {"011002FF00010320", "011002FF0001032004FF00"}) {
        std::vector<TagLen> list;
        MakeTagLen(hex(in), list);
        ASSERT_EQ(list.size(), 3U) << in;
        EXPECT_EQ(list[0].length, 16);
        EXPECT_EQ(list[1].length, 256);
        EXPECT_EQ(list[2].tag, hex("03"));
    }
    const Blob data(300, 0x5A);
    EXPECT_EQ(GetExtendedAPDU(hex("002A9E9A"), data, 0), hex("002A9E9A00012C") + data + hex("0000"));
    EXPECT_EQ(GetExtendedAPDU(hex("00B00000"), Blob(), 0x1234), hex("00B00000001234"));
    EXPECT_EQ(codeOf([] { GetExtendedAPDU(hex("00D60000"), Blob(65536, 0), 0); }), CKR_DATA_LEN_RANGE);
    EXPECT_EQ(MakeBERCoded(0x7F49, data), hex("7F4982012C") + data);
}

// openssl enc -des-cbc -K 5A17C3E08B4D2F96 -iv 5A17C3E08B4D2F96 -nopad, last block.
TEST(FramingTest, TheMACIsTheLastBlockOfDESInCBCMode)
{
    EXPECT_EQ(GetMAC(Blob("hello world, 123")), hex("FF41C0F6A3CA9C38"));
    EXPECT_EQ(GetMAC(Blob("hello world, 12")), hex("96B0FFB54FA75471"));
    EXPECT_EQ(GetMAC(Blob()), Blob(8, 0));
}
