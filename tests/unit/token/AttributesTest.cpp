#include "pkcs11/token/InfoRecords.h"

#include "pkcs11/token/Framing.h"
#include "tests/support/ByteText.h"
#include "tests/support/Failure.h"

using namespace PKCS11;

// The encodings here were made with openssl asn1parse -genconf.

TEST(PKCS11AttrsTest, KeepsOneValueOfATypeInOrder)
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

TEST(PKCS11AttrsTest, LeavesOutWhatIsNeverStored)
{
    char x = 'x';
    PKCS11Attrs direct;
    PKCS11Attrs stored;
    CK_ATTRIBUTE empty{0x200, nullptr, 0};
    stored.SetParam(&empty, 1);
    for (CK_ATTRIBUTE_TYPE type = 0; type < 0x200; ++type) {
        CK_ATTRIBUTE attribute{type, &x, 1};
        direct.SetParam(type, Blob("x"));
        stored.SetParam(&attribute, 1);
    }
    EXPECT_EQ(stored.getSize(), 0x200 - 16);
    const Blob kept = direct.GetAttrs();
    EXPECT_EQ(PKCS11Attrs(kept).getSize(), 0x200 - 16);
    for (const CK_ATTRIBUTE_TYPE type : {0x1, 0x11, 0x81, 0x82, 0x83, 0x84, 0x101, 0x120, 0x123, 0x124, 0x125,
                                         0x130, 0x131, 0x132, 0x180, 0x181}) {
        Blob value;
        PKCS11Attrs(kept).GetParam(type, value);
        EXPECT_EQ(value, Blob()) << type;
    }
}

TEST(PKCS11AttrsTest, SetsFromCardsMayBeIncomplete)
{
    const Blob broken = hex("3119050030003006060400000102300B0604000000030403414243");
    PKCS11Attrs attributes;
    attributes.SetParam(CKA_LABEL, Blob("old"));
    attributes.SetAttrs(broken);
    attributes.SetAttrs(hex("310D300B06040000000330030201 05")); // no value
    EXPECT_EQ(attributes.GetAttrs(), hex("310D300B0604000000030403414243"));
    attributes.SetAttrs(hex("311630090604000000030401413009060400000003040142"));
    EXPECT_EQ(attributes.GetAttrs(), hex("310B3009060400000003040142"));
    attributes.SetAttrs(hex("310C300A0604000001020402 4142"));
    EXPECT_EQ(attributes.GetAttrs(), hex("31173009060400000003040142300A0604000001020402 4142"));
    PKCS11Attrs imported(broken);
    imported.SetParam(CKA_ID, Blob("7"));
    EXPECT_EQ(imported.GetAttrs(), hex("311C050030003009060400000102040137300B0604000000030403414243"));
}

TEST(InfoRecordsTest, FieldsAndAttributesComeBack)
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
    EXPECT_EQ(PublicKeyInfo().Export() + CertificateInfo().Export() + DataInfo().Export() +
                  ContainerInfo().Export(),
              hex("300A 040004000400 04023100 300C 0400040004000400 04023100 3008 04000400 04023100 3010 "
                  "040004000400040004000400 04023100"));
    Blob fields;
    for (int i = 0; i < 1000; ++i) // more than there are
        fields.append(hex("0401AA"));
    EXPECT_EQ(DataInfo(MakeBERCoded(0x30, fields + hex("04023100"))).Export(),
              hex("300A 0401AA 0401AA 04023100"));
    TokenInfo token(hex("302004014C040153040101040201020400040F310D300B0604000000030403414243"));
    EXPECT_EQ(token.getLabel() + token.getSerialNumber(), Blob("ABCS"));
    EXPECT_EQ(token.field(3) + token.field(4), hex("010F"));
    token.setLabel(Blob("new"));
    EXPECT_EQ(TokenInfo(token.Export()).getLabel(), Blob("new"));
    const CertificateInfo shorter(hex("300D04014C04024944040231000500"));
    EXPECT_EQ(shorter.getLabel() + shorter.getID(), Blob("LID"));
    EXPECT_EQ(CertificateInfo(hex("300704014C04023100")).getID(), Blob());
}
