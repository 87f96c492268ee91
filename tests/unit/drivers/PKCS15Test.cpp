#include "pkcs11/drivers/ias/PKCS15BaseDF.h"
#include "pkcs11/drivers/ias/PKCS15ODF.h"
#include "pkcs11/drivers/ias/PKCS15TokenInfo.h"
#include "tests/support/ByteText.h"
#include "tests/support/Expected.h"

#include <map>

using namespace PKCS11;

namespace {

using Auth = PKCS15AuthenticationObject;
using Cert = PKCS15CertificateObject;
using Common = PKCS15CommonObjectAttributes;
using Data = PKCS15DataObject;
using Key = PKCS15PrivateKeyObject;

/// BER-TLV objects in the notation of ByteText.h.
std::string shown(const vcard::Bytes& objects)
{
    std::string text;
    const std::vector<vcard::Tlv> all = vcard::parseTlvs(objects).value();
    for (const auto& [tag, value] : all) {
        text += text.empty() ? "" : " ";
        if ((tag & 0x20U) != 0)
            text += vcard::toHex({static_cast<unsigned char>(tag)}) + "(" + shown(value) + ")";
        else
            text += vcard::toHex(vcard::tlv(tag, value));
    }
    return text;
}
/// What comes back from Export after Import, or the text that Import throws.
template <class Record>
std::string trip(const std::string& text)
{
    Record record;
    try {
        record.Import(hex(text));
    } catch (const char* error) {
        return error;
    }
    return shown(bytes(PKCS11_blob2hex(record.Export())));
}
const std::string kCommon = "30(0C024142 03020780 04015A 02010E)";
const std::string kPath = "30(04044401B001 020110 800120)";

} // namespace

TEST(PKCS15Test, RecordsAreWrittenInTheirOwnOrderAndEveryErrorHasItsText)
{
    const std::map<std::string, std::string (*)(const std::string&)> kinds = {
        {"Auth", trip<Auth>},       {"Cert", trip<Cert>},
        {"Common", trip<Common>},   {"Data", trip<Data>},
        {"Key", trip<Key>},         {"ODF", trip<PKCS15ODF>},
        {"Path", trip<PKCS15Path>}, {"TokenInfo", trip<PKCS15TokenInfo>}};
    expectLines("unit/drivers/PKCS15Test.txt", [&](const std::string& line) {
        const size_t blank = line.find(' ');
        return " " + kinds.at(line.substr(0, blank))(line.substr(blank));
    });
}

TEST(PKCS15Test, FieldsAreReadAndChanged)
{
    Key key;
    key.Import(hex("A0(" + kCommon + "30(0401AA 0303066040 030203B8 0101FF A0(1809'20301231Z')) A1(30(" +
                   kPath + "020109 03020640))) FFFF"));
    EXPECT_EQ(key.recordSize(), 73);
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
    pin.Import(hex("30(" + kCommon + "30(040101) A1(30(03020450 0A0101 020104 020108 02010C 020163)))"));
    EXPECT_EQ(pin.pin->minLength + pin.pin->storedLength + pin.pin->maxLength, hex("04 08 0C")); // no fourth
    pin.Import(hex("30(" + kCommon + "30(040101))")); // nothing of the former record is left
    EXPECT_TRUE(pin.pin->isEmpty());
    PKCS15TokenInfo info; // breaks off; nothing counts after the SEQUENCE
    info.Import(hex("3040 020100 800141 3000 0C0142"));
    EXPECT_EQ(info.label + info.manufacturerID, Blob("A"));
}

TEST(PKCS15Test, DirectoriesKeepTheGoodRecords)
{
    const std::string first = "30(30(0C0131) 3000)", second = "30(30(0C0132) 3000)";
    PKCS15CertDF directory;
    directory.Import(hex("0000" + first + "30(3000) 3003 0C0541 FFFF" + second + "0000 3009 0C01"));
    EXPECT_EQ(directory.Export(), hex(first + second));
    EXPECT_THROW(directory.InsertEntry(hex("0400")), const char*);
    directory.InsertEntry(std::make_unique<Cert>());
    const Cert* const added = &directory[2];
    directory.DeleteEntry(&directory[0]);
    directory.DeleteEntry(std::make_unique<Cert>().get());
    ASSERT_EQ(directory.GetNumber(), 2);
    EXPECT_EQ(&directory[1], added);
}
