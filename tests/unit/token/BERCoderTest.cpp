#include "pkcs11/token/BERCoder.h"
#include "tests/support/ByteText.h"
#include "tests/support/Failure.h"

#include <functional>

using namespace PKCS11;

namespace {

std::string encoded(const BERCoder& node)
{
    Blob bytes;
    node.Export(bytes);
    return PKCS11_blob2hex(bytes);
}

CK_RV importCode(const std::string& text)
{
    return codeOf([&] { BERCoder().import(hex(text), 0); });
}

} // namespace

TEST(BERCoderTest, DecodesEveryFormAndWritesTheShortestOne)
{
    const std::tuple<const char*, int, const char*, bool> cases[] = {
        {"30800401AA0000", 7, "30030401AA", false},
        {"300730800401AA0000FF", 9, "300530030401AA", true},
        {"0480AA00BB000055", 7, "0403AA00BB", false},
        {"0484FFFFFFFFAA0000", 9, "0401AA", false},
        {"7F498100", 4, "7F4900", true},
        {"9F3884000000021122", 9, "9F38021122", true}};
    for (const auto& [in, end, out, definite] : cases) {
        BERCoder node;
        EXPECT_EQ(node.import(hex(in), 0), end) << in;
        EXPECT_EQ(encoded(node), out);
        EXPECT_EQ(node.IsSizeDefinable(), definite);
    }
    EXPECT_EQ(encoded(BERCoder(0x5F8001, Blob(200, 1))).substr(0, 10), "5F800181C8");
    EXPECT_EQ(encoded(BERCoder(0x04, Blob(256, 1))).substr(0, 8), "04820100");
}

TEST(BERCoderTest, RefusesMalformedInput)
{
    for (const int tag : {0x9F, 0x9F8080, 0x3001, 0x9F3801})
        EXPECT_EQ(codeOf([tag] { MultiTag{tag}; }), CKR_DATA_INVALID) << tag;
    for (const char* in : {"", "9F", "9F8080", "04850000000001AA", "0402AA", "0484FFFFFFFEAA", "30030402AA"})
        EXPECT_EQ(importCode(in), CKR_DATA_INVALID) << in;
    for (const char* in : {"04", "048201", "30050401AA", "30800401AA00", "0480AA00", "3084FFFFFFFE0401AA"})
        EXPECT_EQ(importCode(in), CKR_BUFFER_TOO_SMALL) << in;
    std::string nested = "0500";
    for (int i = 0; i < 32; ++i)
        nested = "3080" + nested + "0000";
    EXPECT_EQ(importCode(nested), CKR_OK);
    EXPECT_EQ(importCode("3080" + nested + "0000"), CKR_DATA_INVALID);
    BERCoder node;
    EXPECT_EQ(codeOf([&] { node.import(hex("300A0401AA30050401BB0409CC"), 0); }), CKR_DATA_INVALID);
    EXPECT_EQ(encoded(node), "30080401AA30030401BB");
}

TEST(BERCoderTest, PrimitiveAndConstructedNodesKeepApart)
{
    BERCoder node(0x04, hex("AA"));
    const std::function<void()> changes[] = {
        [&] { node[0]; }, [&] { node.component(0); }, [&] { node.insertComponent(0); },
        [&] { node.eraseComponent(0); }, [&] { node.append(BERCoder()); }};
    for (const auto& change : changes)
        EXPECT_EQ(codeOf(change), CKR_DATA_INVALID);
    node.setTag(0x30);
    EXPECT_EQ(codeOf([&] { node.getValue(); }), CKR_DATA_INVALID);
    node[1] = BERCoder(0x02, hex("07"));
    node.append(BERCoder(0x04, hex("AA")));
    node.insertComponent(2);
    node.insertComponent(5);
    EXPECT_EQ(encoded(node), "300E050002010705000401AA05000500");
    EXPECT_EQ(node.component(3).getValue(), hex("AA"));
    EXPECT_EQ(codeOf([&] { node.component(6); }), CKR_BUFFER_TOO_SMALL);
    for (const int i : {-1, 6, 5, 4, 2, 0})
        node.eraseComponent(i);
    EXPECT_EQ(encoded(node), "30060201070401AA");
    node.setTag(0x04);
    EXPECT_EQ(encoded(node), "0400");
    int position = 1;
    EXPECT_EQ(BERCoder::GetMultiTagFromBlob(hex("FF5F2D01"), position), MultiTag(0x5F2D));
    EXPECT_EQ(position, 3);
}
