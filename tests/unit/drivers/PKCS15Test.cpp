#include "pkcs11/drivers/ias/PKCS15BaseDF.h"
#include "pkcs11/drivers/ias/PKCS15ODF.h"
#include "pkcs11/drivers/ias/PKCS15TokenInfo.h"
#include "tests/support/TlvText.h"

using namespace PKCS11;

namespace {

using Auth = PKCS15AuthenticationObject;
using Cert = PKCS15CertificateObject;
using Common = PKCS15CommonObjectAttributes;
using Data = PKCS15DataObject;
using Key = PKCS15PrivateKeyObject;

/// What comes back from Export after Import, as hexadecimal text, or the text that Import throws.
template <class Record>
std::string trip(const std::string& bytes)
{
    Record record;
    try {
        record.Import(hex(bytes));
        return PKCS11_blob2hex(record.Export());
    } catch (const char* text) {
        return text;
    }
}
const std::string kEmpty = "3000";
const std::string kTwo = kEmpty + kEmpty;
const std::string kCommon = seq("0C024142 03020780 04015A 02010E");
const std::string kPath = seq("04044401B001 020110 800120");
const std::string kKey = seq("0401AA 0303066040 030203B8 0101FF 02020081 180932303235303130325A" +
                             tlv(0xA0, "180932303330313233315A") + "A103020107");
const std::string kPin =
    tlv(0xA1, seq("03020450 0A0101 020104 020108 02010C 020163 80020081 0401FF" + kPath + "0500"));

} // namespace

TEST(PKCS15, RecordsAreWrittenInTheirOwnOrderAndEveryErrorHasItsText)
{
    const std::string auth = "PKCS15AuthenticationObject::Import: ";
    const std::string cert = "PKCS15CertificateObject::Import: ";
    const std::string data = "PKCS15DataObject::Import:";
    const std::string key = "PKCS15PrivateKeyObject::Import: ";
    const std::string direct = tlv(0xA1, seq(tlv(0xA0, "0401AA") + "020105"));
    const std::string pin = "03020450 0A0101 020104 020108 02010C 80020081 0401FF" + kPath;
    const std::string written = seq("0401AA 0303066040 030203B8 0101FF 02020081 180932303235303130325A" +
                                    tlv(0xA0, "180932303330313233315A"));
    const std::string date = "180932303235303130325A";
    const std::string credential = tlv(0xA0, seq(tlv(0xA0, seq("020104 0401CC"))));
    const struct {
        std::string (*trip)(const std::string&);
        std::string bytes, text;
    } rows[] = {
        {trip<Common>, seq("0C0141 3000"), "PKCS15CommonObjectAttributes::Import: coding error"},
        {trip<Cert>, seq(seq(kEmpty)),
         "PKCS15CommonObjectAttributes::Import: coding error"}, // before the size
        {trip<PKCS15TokenInfo>, "3100", "PKCS15TokenInfo::Import: wrong first tag"},
        {trip<Auth>, tlv(0xA3, kEmpty), auth + "Unknown Authentication Object type"},
        {trip<Auth>, seq(kEmpty + "0400"), auth + "coding error"},
        {trip<Auth>, seq(kTwo + "A100"), auth + "coding error"},
        {trip<Auth>, seq(kTwo + "A000"), auth + "wrong tag"},
        {trip<Auth>, seq(kTwo + tlv(0xA1, "3100")), auth + "coding typeAttributes error"},
        {trip<Data>, tlv(0xA2, kEmpty), data + "unknown type"},
        {trip<Data>, seq(kEmpty), data + "code size 1"},
        {trip<Data>, seq(kTwo), data + "code size 2"},
        {trip<Data>, seq(kTwo + kEmpty), cert + "wrong tag"},
        {trip<Cert>, tlv(0xA6, kEmpty), cert + "Unknown Certificate type"},
        {trip<Cert>, seq(kEmpty), cert + "coder size"},
        {trip<Cert>, seq(kEmpty + "0400"), cert + "wrong tag"},
        {trip<Cert>, seq(kTwo + tlv(0xA1, "3100")), cert + "coding typeAttributes error"},
        {trip<Key>, tlv(0xA4, kEmpty), key + "Unknown Private key type"},
        {trip<Key>, seq(kEmpty), key + "coder.getSize() < 2"},
        {trip<Key>, seq(kEmpty + "0400"), "PKCS15CommonKeyAttributes::Import"},
        {trip<Key>, seq(kTwo), key + "coder.getSize() < 3"},
        {trip<Key>, seq(kTwo + tlv(0xA0, kEmpty)), key + "coder.getSize() < 4"},
        {trip<Key>, seq(kTwo + seq(kPath)), " PKCS15PrivateKeyObject::ImportKeyAttributes: codind error"},
        {trip<PKCS15Path>, seq("020100 04023F00 8600 800101"), seq("04023F00 020100")},
        {trip<PKCS15Path>, "3080 0402AABB 0000", seq("0402AABB")},
        {trip<PKCS15TokenInfo>, seq("020100 0401AA" + seq("0C0141") + "800142"), seq("020100 0401AA")},
        {trip<PKCS15TokenInfo>, seq("0C0141 0401AA A50B" + date + "0C0142 830133 840134"),
         seq("0401AA 0C0141 830133 840134 A50B" + date)},
        {trip<Auth>, seq(kCommon + seq("040101 0500") + kPin),
         seq(kCommon + seq("040101") + tlv(0xA1, seq(pin)))},
        {trip<Auth>, tlv(0xA1, kCommon + seq("040101") + "A100"), tlv(0xA1, kCommon + seq("040101"))},
        {trip<Cert>, "30820010" + kEmpty + "3081030401AA A106 3004 3002 0500", seq(kEmpty + seq("0401AA"))},
        {trip<Cert>, seq(kCommon + seq("0101FF 040101") + direct),
         seq(kCommon + seq("040101 0101FF") + tlv(0xA1, seq(kEmpty + "020105")))},
        {trip<Data>, seq(kCommon + seq("06022A03 0C0141") + tlv(0xA1, kPath)),
         seq(kCommon + seq("0C0141 06022A03") + tlv(0xA1, kPath))},
        {trip<Data>, tlv(0xA1, kCommon + kEmpty + tlv(0xA1, kPath + "06022A03")),
         tlv(0xA1, kCommon + kEmpty + tlv(0xA1, "06022A03" + kPath))},
        {trip<Data>, tlv(0xA1, kCommon + kEmpty + tlv(0xA1, seq("06022A03" + kPath))),
         tlv(0xA1, kCommon + kEmpty + tlv(0xA1, "06022A03" + kPath))},
        {trip<Key>, seq(kCommon + kKey + tlv(0xA1, seq(kPath + "03020640 02020400 020101 0500"))),
         seq(kCommon + written + tlv(0xA1, seq(kPath + "02020400 020101 03020640")))},
        {trip<Key>,
         tlv(0xA0, kCommon + kKey + tlv(0xA0, seq("0500" + tlv(0xA0, seq("0401CC 020104")))) +
                       tlv(0xA1, seq(kPath + "020101"))),
         tlv(0xA0, kCommon + written + credential + tlv(0xA1, seq(kPath + "020101")))},
        {trip<PKCS15ODF>,
         tlv(0xA4, kPath) + tlv(0xA0, seq("04024403") + "0500") + tlv(0xA4, seq("0401")) + "A900",
         tlv(0xA0, seq("04024403")) + tlv(0xA4, kPath)},
    };
    for (const auto& row : rows)
        EXPECT_EQ(row.trip(row.bytes), row.text) << row.bytes;
}

TEST(PKCS15, FieldsAreReadAndChanged)
{
    Key key;
    key.Import(hex(tlv(0xA0, kCommon + kKey + tlv(0xA1, seq(kPath + "020109 03020640"))) + "FFFF"));
    EXPECT_EQ(key.recordSize(), 93);
    PKCS15CommonKeyAttributes& attributes = key.key;
    EXPECT_TRUE(key.isPrivate() && !key.isModifiable() && attributes.isForNonRepudiation());
    EXPECT_EQ(key.objectAuthId + attributes.endDate + key.path.index + key.keyInfo + key.modulusLength,
              hex("5A 32303330313233315A 10 09"));
    // Only the first byte of a bit string is tested and changed.
    EXPECT_TRUE(attributes.GetKeyUsage(PKCS15_USAGE_SIGN | PKCS15_USAGE_DECRYPT));
    EXPECT_FALSE(attributes.GetKeyUsage(PKCS15_USAGE_SIGN | PKCS15_USAGE_ENCRYPT));
    attributes.SetKeyUsage(PKCS15_USAGE_SIGN, false);
    attributes.accessFlags.clear();
    attributes.SetKeyAccess(PKCS15_ACCESS_LOCAL, true);
    EXPECT_EQ(attributes.usage + attributes.accessFlags, hex("064040 0308"));

    Auth pin;
    pin.Import(hex(seq(kCommon + seq("040101") + kPin)));
    EXPECT_EQ(pin.pin->minLength + pin.pin->storedLength + pin.pin->maxLength, hex("04 08 0C")); // no fourth
    pin.Import(hex(seq(kCommon + seq("040101")))); // nothing of the former record is left
    EXPECT_TRUE(pin.pin->isEmpty());
    PKCS15TokenInfo info; // breaks off; nothing counts behind the SEQUENCE
    info.Import(hex("3040 020100 800141 " + kEmpty + "0C0142"));
    EXPECT_EQ(info.label + info.manufacturerID, Blob("A"));
}

TEST(PKCS15, DirectoriesKeepTheGoodRecords)
{
    const std::string first = seq(seq("0C0131") + kEmpty);
    const std::string second = seq(seq("0C0132") + kEmpty);
    PKCS15CertDF directory;
    directory.Import(hex("0000" + first + seq(kEmpty) + "3003 0C0541 FFFF" + second + "0000 3009 0C01"));
    EXPECT_EQ(directory.Export(), hex(first + second));
    EXPECT_THROW(directory.InsertEntry(hex("0400")), const char*);
    directory.InsertEntry(std::make_unique<Cert>());
    const Cert* const added = &directory[2];
    directory.DeleteEntry(&directory[0]);
    directory.DeleteEntry(std::make_unique<Cert>().get());
    ASSERT_EQ(directory.GetNumber(), 2);
    EXPECT_EQ(&directory[1], added);
}
