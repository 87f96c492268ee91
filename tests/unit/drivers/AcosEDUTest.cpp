#include "pkcs11/drivers/edu/AcosEDUObjects.h"
#include "pkcs11/drivers/edu/AcosEDUToken.h"
#include "tests/support/ByteText.h"
#include "tests/support/Failure.h"

using namespace PKCS11;

TEST(AcosEDUTest, KeyFilesAreATlvOrAModulus)
{
    const char* const files[][2] = {
        {"C1C20000", "C1C2"},          {"3008020300C1C3020103 0000", "C1C3"}, {"3004 0302 00C1 00", "C1"},
        {"30040402C1C2", "C1C2"},      {"30030201C1 01", "30030201C101"},     {"3000", "30"},
        {"30070601AA0202C1C2", "C1C2"}};
    for (const auto& [file, modulus] : files)
        EXPECT_EQ(modulusOfKeyFile(hex(file)), hex(modulus)) << file;
}

TEST(AcosEDUTest, PinBlocksTakeSixteenDigits)
{
    EXPECT_EQ(AcosEDUToken::PinToHex(Blob("1234567890123456")), hex("1234567890123456"));
    EXPECT_EQ(AcosEDUToken::PinToHex(Blob("7")), hex("7FFFFFFFFFFFFFFF"));
    EXPECT_EQ(thrownBy([] { AcosEDUToken::PinToHex(Blob("1234567890123456x")); }), "A2||");
    for (const char* pin : {"12a4", "12?", " 1", "1/2", "1:2"})
        EXPECT_EQ(thrownBy([&] { AcosEDUToken::PinToHex(Blob(pin)); }), "A1||") << pin;
}
