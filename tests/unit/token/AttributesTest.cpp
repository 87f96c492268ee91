#include "pkcs11/token/ByteOrder.h"
#include "pkcs11/token/InfoRecords.h"
#include "tests/unit/token/TestBytes.h"

#include <ctime>

using namespace PKCS11;

// The encodings here were made with openssl asn1parse -genconf.

TEST(PKCS11Attrs, KeepsOneValueOfATypeInOrder)
{
    PKCS11Attrs attributes;
    attributes.SetParam(CKA_LABEL, Blob("A"));
    attributes.SetParam(CKA_SIGN, 2);
    attributes.SetParam(CKA_LABEL, Blob("BC"));
    EXPECT_EQ(attributes.GetAttrs(), hex("3117300A060400000003040242433009060400000108040100"));
    attributes.SetParam(CKA_SIGN, hex("02"));
    EXPECT_FALSE(attributes.GetParam(CKA_SIGN));
    Blob value("old");
    attributes.GetParam(CKA_ID, value);
    EXPECT_EQ(value, Blob());
}

TEST(PKCS11Attrs, LeavesOutWhatIsNeverStored)
{
    char x = 'x';
    std::vector<CK_ATTRIBUTE> all = {{CKA_LABEL, nullptr, 0}};
    PKCS11Attrs direct;
    for (const CK_ATTRIBUTE_TYPE type : {0x1, 0x11, 0x81, 0x82, 0x83, 0x84, 0x101, 0x120, 0x123, 0x124, 0x125,
                                         0x130, 0x131, 0x132, 0x180, 0x181}) {
        all.push_back({type, &x, 1});
        direct.SetParam(type, Blob("x"));
    }
    EXPECT_EQ(direct.GetAttrs(), hex("3100"));
    for (const CK_ATTRIBUTE_TYPE type : {0x3, 0x85, 0x121, 0x122, 0x126, 0x127, 0x128})
        all.push_back({type, &x, 1});
    PKCS11Attrs stored;
    stored.SetParam(all.data(), static_cast<CK_ULONG>(all.size()));
    EXPECT_EQ(stored.getSize(), 7);
}

TEST(PKCS11Attrs, ALargeSetTakesTimeForItsSizeOnly)
{
    // Each type twice: the later value counts, in the earlier place.
    constexpr int kTypes = 10000;
    Blob set = hex("3183035B60");
    for (int i = 0; i < 2 * kTypes; ++i)
        set.append(hex("30090604") + long2blob(i % kTypes) + hex("0401") + Blob(1, i < kTypes ? 1 : 2));
    const std::clock_t start = std::clock();
    PKCS11Attrs attributes;
    attributes.SetAttrs(set);
    EXPECT_LT(std::clock() - start, CLOCKS_PER_SEC);
    ASSERT_EQ(attributes.getSize(), kTypes);
    EXPECT_EQ(attributes[kTypes - 1][0].getValue() + attributes[1][1].getValue(),
              long2blob(kTypes - 1) + hex("02"));
}

TEST(PKCS11Attrs, SetsFromCardsMayBeIncomplete)
{
    const Blob broken = hex("3119050030003006060400000102300B0604000000030403414243");
    PKCS11Attrs attributes;
    attributes.SetParam(CKA_LABEL, Blob("old"));
    attributes.SetAttrs(broken);
    EXPECT_EQ(attributes.GetAttrs(), hex("310D300B0604000000030403414243"));
    PKCS11Attrs imported(broken);
    imported.SetParam(CKA_ID, Blob("7"));
    EXPECT_EQ(imported.GetAttrs(), hex("311C050030003009060400000102040137300B0604000000030403414243"));
}

TEST(InfoRecords, FieldsAndAttributesComeBack)
{
    PrivateKeyInfo key;
    key.setField(1, Blob("f"));
    key.setField(2, Blob("ff"));
    key.SetParam(CKA_PRIVATE, 1);
    key.SetParam(CKA_ID, Blob("id"));
    const Blob record = hex("3024040004016604026666041931173009060400000002040101300A06040000010204026964");
    EXPECT_EQ(key.Export(), record);
    EXPECT_EQ(PrivateKeyInfo(record).Export(), record);
    EXPECT_EQ(PrivateKeyInfo(record).getID(), Blob("id"));
    EXPECT_EQ(TokenInfo().Export(), hex("30110400040004010A04010604010F04023100"));
    TokenInfo token(hex("302004014C040153040101040201020400040F310D300B0604000000030403414243"));
    EXPECT_EQ(token.getLabel() + token.getSerialNumber(), Blob("ABCS"));
    EXPECT_EQ(token.field(3) + token.field(4), hex("010F"));
    token.setLabel(Blob("new"));
    EXPECT_EQ(TokenInfo(token.Export()).getLabel(), Blob("new"));
    const CertificateInfo shorter(hex("300D04014C04024944040231000500"));
    EXPECT_EQ(shorter.getLabel() + shorter.getID(), Blob("LID"));
}
