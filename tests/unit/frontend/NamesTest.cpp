#include "pkcs11/frontend/trace/Names.h"

#include "pkcs11/frontend/trace/CallTrace.h"
#include "pkcs11/frontend/trace/Print.h"
#include "tests/support/Expected.h"
#include "tests/support/TraceFile.h"

#include <algorithm>
#include <fstream>
#include <functional>
#include <set>
#include <sstream>

namespace PKCS11 {
namespace {

constexpr char kMask[] = "[-------------------------------------------------]";

/// Whether the PKCS#11 header gives the number each name in the text; an ampersand may stand between two.
bool isInHeader(unsigned long number, std::string text)
{
    static const auto names = [] {
        std::set<std::pair<unsigned long, std::string>> found;
        std::ifstream header(QUARVEL_PKCS11_HEADER);
        std::string define, name, value;
        for (std::string line; std::getline(header, line);)
            if (std::istringstream words(line); words >> define >> name >> value && value.size() > 1)
                found.emplace(std::strtoul(value.c_str() + 1, nullptr, 0), name);
        return found;
    }();
    std::replace(text.begin(), text.end(), '|', ' ');
    std::istringstream words(text);
    bool isKnown = true;
    for (std::string word; words >> word;)
        isKnown = isKnown && (word == "&" || names.count({number, word}) != 0);
    return isKnown;
}

/// Each number with its text, but for those that have the text of a number without meaning, and flags.
TEST(NamesTest, NumbersHaveTheirTexts)
{
    constexpr unsigned long kMeaningless = 0x77777777;
    const std::pair<const char*, std::function<std::string(unsigned long)>> kinds[] = {
        {"results", rv2string_ne},
        {"attributes", attributeType2string_ne},
        {"values of attributes, as they begin for 1",
         [](unsigned long type) {
             CK_ULONG one = 1;
             std::string text = attributevalue2string_ne({type, &one, sizeof one}).substr(0, 4);
             std::replace_if(
                 text.begin(), text.end(), [](char c) { return c < ' '; }, '.');
             return text;
         }},
        {"objects", objectClass2string_ne},
        {"keys", keyType2string_ne},
        {"certificates", certificateType2string_ne},
        {"states of sessions", sessionState2string_ne},
        {"users", sessionUsertype2string_ne},
        {"mechanisms", [](unsigned long number) { return mechanism2string(number) + '|'; }}};
    std::ostringstream shown;
    shown << std::hex;
    for (const auto& [kind, toText] : kinds) {
        shown << kind << " (" << toText(kMeaningless) << ")";
        int count = 0;
        const auto show = [&, &toText = toText](unsigned long number) {
            const std::string text = toText(number);
            const bool isName =
                text.rfind("CK", 0) == 0 && text.find("VENDOR") == text.npos && text.size() > 4;
            EXPECT_TRUE(!isName || isInHeader(number, text)) << text;
            if (text != toText(kMeaningless))
                shown << (count++ % 12 == 0 ? "\n" : " ") << number << "=" << text;
        };
        for (unsigned long number = 0; number < 0x2200; ++number)
            show(number);
        for (const unsigned long number : {0x80000000UL, 0x80000001UL, 0xCE534352UL, ~0UL})
            show(number);
        shown << "\n";
    }
    for (const auto& toText : {sessionFlag2string, tokenFlag2string, slotFlag2string, mechanismFlag2string}) {
        shown << toText(~0UL, "<", ">");
        for (int bit = 0; bit < 32; ++bit)
            if (const std::string text = toText(1UL << bit, "<", ">"); !text.empty())
                shown << " " << bit << text;
        shown << "\n";
    }
    expectFile("unit/frontend/NamesTest.txt", shown.str());

    const std::string bytes(4097, 'z');
    const auto* first = reinterpret_cast<const unsigned char*>(bytes.data());
    EXPECT_EQ(byte2hex(first, 4097) + byte2string(first, 4097), "wrong datalenwrong datalen");
    EXPECT_EQ(byte2hex(first, 4096).size(), 8192U);
    EXPECT_EQ(byte2string(first, 4096), bytes.substr(1));
    EXPECT_EQ(byte2hex(0x0A) + version2string({2, 20}), "0a2.20");
    CK_BBOOL no = CK_FALSE;
    EXPECT_EQ(attributevalue2string_ne({CKA_TOKEN, nullptr, 1}), "NULL");
    EXPECT_EQ(attributevalue2string_ne({CKA_TOKEN, &no, 1}), "FALSE");
    EXPECT_EQ(attributevalue2string_ne({CKA_TOKEN, &no, 0}) + attributevalue2string_ne({CKA_CLASS, &no, 1}),
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
