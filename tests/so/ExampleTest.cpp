#include "tests/fakepcsc/FakePCSC.h"
#include "tools/vcard/PivCard.h"

#include <cstdio>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <openssl/evp.h>
#include <openssl/x509.h>

extern "C" int signExample(int argc, char** argv);

namespace {

// The example of examples/ with the built library: its signature holds against the card's certificate.
TEST(ExampleTest, SignsAFile)
{
    const auto card = std::make_shared<vcard::PivCard>();
    fakepcsc::reset();
    fakepcsc::insertCard(fakepcsc::addReader("Reader 0"), card);
    const std::string letter = "A letter.";
    std::ofstream("example-letter") << letter;
    std::ofstream("example-pin") << "123456\n";
    ASSERT_NE(std::freopen("example-pin", "r", stdin), nullptr);
    std::string arguments[] = {"sign", QUARVEL_MODULE, "example-letter", "example-signature"};
    char* argv[] = {arguments[0].data(), arguments[1].data(), arguments[2].data(), arguments[3].data(),
                    nullptr};
    ASSERT_EQ(signExample(4, argv), 0);

    std::ifstream file("example-signature", std::ios::binary);
    const vcard::Bytes signature{std::istreambuf_iterator<char>(file), {}};
    const vcard::Bytes der = card->certificate(0x9A);
    const unsigned char* at = der.data();
    const std::unique_ptr<X509, decltype(&X509_free)> certificate(
        d2i_X509(nullptr, &at, static_cast<long>(der.size())), X509_free);
    const std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context(EVP_MD_CTX_new(), EVP_MD_CTX_free);
    ASSERT_EQ(EVP_DigestVerifyInit(context.get(), nullptr, EVP_sha256(), nullptr,
                                   X509_get0_pubkey(certificate.get())),
              1);
    EXPECT_EQ(EVP_DigestVerify(context.get(), signature.data(), signature.size(),
                               reinterpret_cast<const unsigned char*>(letter.data()), letter.size()),
              1);
    for (const char* name : {"example-letter", "example-pin", "example-signature"})
        std::remove(name);
}

} // namespace
