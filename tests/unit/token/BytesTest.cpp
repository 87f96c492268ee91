#include "pkcs11/token/ByteOrder.h"
#include "pkcs11/token/ByteReader.h"
#include "tests/support/ByteText.h"
#include "tests/support/Failure.h"

using namespace PKCS11;

TEST(BytesTest, AreOnlyTouchedWhereTheyAre)
{
    Blob bytes(2, 7);
    EXPECT_EQ(codeOf([&] { bytes.at(2) = 0; }), CKR_BUFFER_TOO_SMALL);
    EXPECT_EQ(codeOf([] { Blob(-1, 0); }), CKR_BUFFER_TOO_SMALL);
    EXPECT_EQ(codeOf([&] { Blob::fromMemory(&bytes, CK_UNAVAILABLE_INFORMATION); }), CKR_HOST_MEMORY);
    EXPECT_EQ(codeOf([] { Blob::fromMemory(nullptr, CK_UNAVAILABLE_INFORMATION); }), CKR_ARGUMENTS_BAD);
    EXPECT_EQ(Blob::fromMemory(std::string(1 << 24, 'x').data(), 1 << 24).size(), 1 << 24); // the most
    EXPECT_EQ(bytes.slice(1, 9), Blob(1, 7));
    EXPECT_EQ(bytes.append(bytes), Blob(4, 7));
    EXPECT_LT(Blob("ab\x7F"), Blob("ab\x80"));
    Blob pin("123456");
    pin.wipe();
    EXPECT_EQ(pin.data(), nullptr); // the memory went back, and with it what it held
    ByteReader reader(bytes);
    EXPECT_EQ(reader.word(), 0x0707);
    EXPECT_EQ(codeOf([&] { reader.take(3); }), CKR_BUFFER_TOO_SMALL);
    EXPECT_EQ(reader.rest(), Blob(2, 7));
    const Blob cut = hex("0402AA");
    ByteReader broken(cut);
    EXPECT_FALSE(broken.element());
    EXPECT_EQ(broken.rest(), cut);
}

TEST(BytesTest, ComeFromTextAndNumbersAndGoBack)
{
    EXPECT_EQ(PKCS11_hex2blob("00a4FF"), Blob(std::string("\0\xA4\xFF", 3)));
    EXPECT_EQ(PKCS11_hex2blob("4g12345"), hex("77123400"));
    EXPECT_EQ(PKCS11_blob2hex(hex("00a4ff")), "00A4FF");
    EXPECT_EQ(long2blob(0x89ABCDEF), hex("89ABCDEF"));
    EXPECT_EQ(blob2long(hex("89ABCDEF")), 0x89ABCDEFUL);
    EXPECT_EQ(codeOf([] { blob2long(hex("000001")); }), CKR_DATA_INVALID);
    EXPECT_EQ(PKCS11_blob2int(hex("FE")), 0xFE);
    EXPECT_EQ(PKCS11_blob2int(hex("FE01")), 0xFE01);
    EXPECT_EQ(PKCS11_blob2int(hex("FE0100")), 0);
    EXPECT_EQ(PKCS11_blob2int(hex("01FE0203")), 0x01FE0203);
    EXPECT_EQ(PKCS11_memLI2long(hex("89ABCDEF55")), 0xEFCDAB89UL);
    char memory[4];
    PKCS11_long2mem(-2, memory);
    EXPECT_EQ(PKCS11_mem2long(memory), -2);
}
