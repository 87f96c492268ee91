#include "tests/fakepcsc/FakePCSC.h"
#include "tools/vcard/PivCard.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>

extern "C" int signExample(int argc, char** argv);

namespace {

// The example of examples/ with the built library: its signature holds against the card's certificate.
TEST(ExampleTest, SignsAFile)
{
    const auto card = std::make_shared<vcard::PivCard>();
    fakepcsc::reset();
    fakepcsc::insertCard(fakepcsc::addReader("Reader 0"), card);
    std::ofstream("example-letter") << "A letter.";
    std::ofstream("example-pin") << "123456\n";
    ASSERT_NE(std::freopen("example-pin", "r", stdin), nullptr);
    std::string arguments[] = {"sign", QUARVEL_MODULE, "example-letter", "example-signature"};
    char* argv[] = {arguments[0].data(), arguments[1].data(), arguments[2].data(), arguments[3].data(),
                    nullptr};
    ASSERT_EQ(signExample(4, argv), 0);

    const vcard::Bytes der = card->certificate(0x9A);
    std::ofstream("example-certificate") << std::string(der.begin(), der.end());
    EXPECT_EQ(
        std::system("openssl x509 -inform DER -in example-certificate -pubkey -noout >example-key &&"
                    "openssl dgst -sha256 -verify example-key -signature example-signature example-letter"),
        0);
    EXPECT_EQ(std::system("rm example-*"), 0);
}

} // namespace
