#include "pkcs11/frontend/trace/Names.h"

#include "pkcs11/frontend/trace/CallTrace.h"
#include "tests/support/TraceFile.h"

#include <gtest/gtest.h>

namespace PKCS11 {
namespace {

TEST(NamesTest, NumbersHaveTheirNames)
{
    EXPECT_EQ(mechanism2string(CKM_RSA_PKCS), "CKM_RSA_PKCS                   ");
    EXPECT_EQ(mechanism2string(CKM_RSA_PKCS_KEY_PAIR_GEN), "CKM_RSA_PKCS_KEY_PAIR_GEN");
    EXPECT_EQ(mechanism2string(0x230), "CKM_RIPEMD128\t\t\t\t ");
    EXPECT_EQ(mechanism2string(0x3A5), "CKM_PBE_SHA1_CAST5_CBC & CKM_PBE_SHA1_CAST128_CBC         ");
    const size_t blanks[] = {13, 17, 17, 17, 10, 14};
    for (size_t i = 0; i < 6; ++i) {
        const std::string text = mechanism2string(CKM_CAST5_KEY_GEN + i);
        EXPECT_EQ(text.size() - text.find_last_not_of(' ') - 1, blanks[i]) << text;
    }
    int named = 0;
    for (CK_MECHANISM_TYPE type = 0; type <= CKM_AES_CBC; ++type)
        named += mechanism2string(type) != "CKM_VENDOR_DEFINED" ? 1 : 0;
    EXPECT_EQ(named, 141);
    EXPECT_EQ(rv2string_ne(CKR_MUTEX_NOT_LOCKED), "CKR_MUTEX_NOT_LOCKED");
    EXPECT_EQ(rv2string_ne(0x80000001UL), "");
    EXPECT_EQ(keyType2string_ne(CKK_X9_42_DH), "");
    EXPECT_EQ(attributeType2string_ne(0xCE534352UL), "CKA_VENDOR_NETSCAPE_NAME");
    EXPECT_EQ(slotFlag2string(CKF_HW_SLOT | CKF_TOKEN_PRESENT, "\t", "\n"),
              "\tCKF_TOKEN_PRESENT\n\tCKF_HW_SLOT");
    EXPECT_EQ(tokenFlag2string(CKF_TOKEN_INITIALIZED, "\t", "\n"), "");
    const std::string bytes(4097, 'z');
    EXPECT_EQ(byte2hex(reinterpret_cast<const unsigned char*>(bytes.data()), 4097), "wrong datalen");
}

TEST(NamesTest, TemplatesShowValuesByTypeAndSecretsNever)
{
    const TraceFile trace;
    CK_ULONG number = CKO_PRIVATE_KEY;
    char text[] = "label";
    CK_ATTRIBUTE attributes[] = {{CKA_CLASS, &number, sizeof number},
                                 {CKA_KEY_TYPE, &number, 1},
                                 {CKA_SIGN, text, 1},
                                 {CKA_LABEL, text, 5},
                                 {CKA_ID, text, 2},
                                 {CKA_VALUE, text, 5},
                                 {CKA_CLASS, nullptr, CK_UNAVAILABLE_INFORMATION}};
    TemplateLogger(attributes, 7);
    const std::vector<std::string> lines = trace.lines();
    ASSERT_EQ(lines.size(), 2 + 7 * 4 - 1U);
    EXPECT_EQ(lines[1] + lines[2] + lines[3],
              "ulCount :\t 7\t Template[0].type: \tCKA_CLASS\t Template[0].pValue: \t*");
    const char* values[] = {
        "CKO_PRIVATE_KEY", "03",     "TRUE",
        "\"label\"",       "0x6c61", "[-------------------------------------------------]"};
    for (size_t i = 0; i < 6; ++i)
        EXPECT_EQ(lines[4 + 4 * i], "\t Template[" + std::to_string(i) + "].Value: \t" + values[i]);
    EXPECT_EQ(lines[28], "\t Template[6].ulValueLen: \t-1");
    // An output buffer with a wild length: the sanitizer sees what is read.
    attributes[0].ulValueLen = 0x7FFFFFF0;
    for (attributes[0].type = 0; attributes[0].type < 0x700; ++attributes[0].type)
        TemplateLogger(attributes, 1);
}

} // namespace
} // namespace PKCS11
