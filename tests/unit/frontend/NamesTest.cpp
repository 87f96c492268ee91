#include "pkcs11/frontend/trace/Names.h"

#include "pkcs11/frontend/trace/CallTrace.h"
#include "pkcs11/frontend/trace/Print.h"
#include "tests/support/Expected.h"
#include "tests/support/TraceFile.h"

#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <set>
#include <sstream>

namespace PKCS11 {
namespace {

using Names = std::map<unsigned long, std::set<std::string>>;

constexpr char kMask[] = "[-------------------------------------------------]";

/// The numbers of the PKCS#11 header whose names begin so.
Names numbers(const std::string& prefix)
{
    Names found;
    std::ifstream header(QUARVEL_PKCS11_HEADER);
    for (std::string line; std::getline(header, line);) {
        std::istringstream words(line);
        std::string define, name, value;
        if (words >> define >> name >> value && name.rfind(prefix, 0) == 0 && value.size() > 1 &&
            isdigit(value[1]))
            found[std::strtoul(value.c_str() + 1, nullptr, 0)].insert(name);
    }
    return found;
}
/// The texts that there are for them, each followed by a stroke: names that the header has for the number,
/// with an ampersand between two.
std::string texts(const std::string& prefix, std::string (*toText)(unsigned long))
{
    std::string all = prefix + " ";
    for (const auto& [number, names] : numbers(prefix)) {
        const std::string text = toText(number);
        std::istringstream words(text);
        for (std::string word; words >> word;)
            EXPECT_TRUE(names.count(word) != 0 || word == "&" || word == prefix + "VENDOR_DEFINED") << text;
        all += text.empty() || text == prefix + "VENDOR_DEFINED" ? "" : text + "|";
    }
    return all + "\n";
}

TEST(NamesTest, NumbersHaveTheirNames)
{
    std::string shown = texts("CKR_", rv2string_ne) + texts("CKA_", attributeType2string_ne) +
                        texts("CKO_", objectClass2string_ne) + texts("CKS_", sessionState2string_ne) +
                        texts("CKU_", sessionUsertype2string_ne) + texts("CKM_", mechanism2string);
    for (const unsigned long vendors : {0x80000001UL, 0xCE534352UL})
        shown += attributeType2string_ne(vendors) + mechanism2string(vendors) + rv2string_ne(vendors) + "|";
    for (unsigned long type = 0; type < 0x20; ++type)
        shown += keyType2string_ne(type) + certificateType2string_ne(type) + "|";
    for (auto* toText : {sessionFlag2string, slotFlag2string, tokenFlag2string, mechanismFlag2string})
        shown += "\n" + toText(~0UL, "before ", " behind") + "\n" +
                 toText(CKF_TOKEN_INITIALIZED, "before ", " behind");
    expectFile("unit/frontend/NamesTest.txt", shown + "\n");

    const std::string bytes(4097, 'z');
    const auto* first = reinterpret_cast<const unsigned char*>(bytes.data());
    EXPECT_EQ(byte2hex(first, 4097) + byte2string(first, 4097), "wrong datalenwrong datalen");
    EXPECT_EQ(byte2hex(first, 4096).size(), 8192U);
    EXPECT_EQ(byte2string(first, 4096), bytes.substr(1));
    EXPECT_EQ(byte2hex(0x0A) + version2string({2, 20}), "0a2.20");
}

TEST(NamesTest, AttributesShowTheirValuesByTheirKind)
{
    CK_ULONG one = 1;
    Names types = numbers("CKA_");
    types[0xCE534352UL];
    types[0x77777777UL];
    std::map<std::string, std::string> shown;
    for (const auto& [type, names] : types)
        shown[attributevalue2string_ne({type, &one, sizeof one})] += attributeType2string_ne(type) + " ";
    EXPECT_EQ(shown.size(), 8U);
    EXPECT_EQ(shown["TRUE"],
              "CKA_TOKEN CKA_PRIVATE CKA_SENSITIVE CKA_ENCRYPT CKA_DECRYPT CKA_WRAP CKA_UNWRAP CKA_SIGN "
              "CKA_SIGN_RECOVER CKA_VERIFY CKA_VERIFY_RECOVER CKA_DERIVE CKA_EXTRACTABLE CKA_LOCAL "
              "CKA_NEVER_EXTRACTABLE CKA_ALWAYS_SENSITIVE CKA_MODIFIABLE ");
    EXPECT_EQ(shown['"' + std::string(reinterpret_cast<const char*>(&one), sizeof one) + '"'],
              "CKA_LABEL CKA_APPLICATION CKA_VENDOR_NETSCAPE_NAME ");
    EXPECT_EQ(shown["0x01" + std::string(2 * (sizeof one - 1), '0')],
              "CKA_ISSUER CKA_SERIAL_NUMBER CKA_SUBJECT CKA_ID CKA_START_DATE CKA_END_DATE CKA_MODULUS "
              "CKA_PUBLIC_EXPONENT ");
    EXPECT_EQ(shown["1"], "CKA_MODULUS_BITS CKA_VALUE_BITS CKA_VALUE_LEN ");
    EXPECT_EQ(shown["CKO_CERTIFICATE"] + shown[""] + shown["DSA"],
              "CKA_CLASS CKA_CERTIFICATE_TYPE CKA_KEY_TYPE ");
    EXPECT_EQ(attributevalue2string_ne({CKA_TOKEN, nullptr, 1}), "NULL");
    one = 0;
    EXPECT_EQ(attributevalue2string_ne({CKA_TOKEN, &one, 1}), "FALSE");
    EXPECT_EQ(attributevalue2string_ne({CKA_TOKEN, &one, 0}) + attributevalue2string_ne({CKA_CLASS, &one, 3}),
              "");
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
    std::string values;
    for (const std::string& line : lines)
        if (const std::size_t at = line.find("].Value: \t"); at != line.npos)
            values += line.substr(at + 10) + "|";
    EXPECT_EQ(values, std::string("CKO_PRIVATE_KEY|03|TRUE|\"label\"|0x6c61|") + kMask + "|");
    EXPECT_EQ(lines.back(), "\t Template[6].ulValueLen: \t-1");
    // An output buffer with a wild length: the sanitizer sees what is read.
    attributes[0].ulValueLen = 0x7FFFFFF0;
    for (attributes[0].type = 0; attributes[0].type < 0x700; ++attributes[0].type)
        TemplateLogger(attributes, 1);
}

TEST(NamesTest, PrintHelpersWriteOneLineEach)
{
    const TraceFile trace;
    const std::string longText(2000, 'x');
    for (const auto& [text, length] :
         {std::pair("reader", 4), {"a\0b", 3}, {longText.c_str(), 2000}, {nullptr, 4}, {"reader", -1}}) {
        PKCS11_PrintStr(text, length);
        PKCS11_PrintMem(text, std::min(length, 2));
    }
    PKCS11_PrintInfo("information");
    PKCS11_PrintInfo(nullptr);
    PKCS11_PrintInt(-0x12345A);
    EXPECT_EQ(trace.lines(), (std::vector<std::string>{"read", "7265", "a", "6100", longText.substr(0, 1023),
                                                       "7878", "information", "FFEDCBA6"}));
}

} // namespace
} // namespace PKCS11
