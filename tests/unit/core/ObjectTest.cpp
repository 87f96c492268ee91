#include "pkcs11/core/Template.h"
#include "pkcs11/core/X509PublicKeyCertificate.h"
#include "pkcs11/drivers/common/CardObjects.h"
#include "pkcs11/frontend/trace/Names.h"
#include "tests/support/Certificates.h"
#include "tests/support/Expected.h"
#include "tests/unit/core/Fakes.h"

#include <array>
#include <map>

using namespace PKCS11;

namespace {

using Values = std::map<CK_ATTRIBUTE_TYPE, Blob>;

CK_ATTRIBUTE entry(CK_ATTRIBUTE_TYPE type, const Blob& value)
{
    return {type, const_cast<CK_BYTE*>(value.data()), static_cast<CK_ULONG>(value.size())};
}
/// All that templates of one entry read from the object.
Values read(Object& object)
{
    Values values;
    for (CK_ATTRIBUTE_TYPE type = 0; type < 0x200; ++type) {
        Blob room(20, 0);
        CK_ATTRIBUTE query = entry(type, room);
        if (codeOf([&] { object.getAttribute(&query, 1); }) != CKR_OK)
            continue;
        room.resize(static_cast<int>(query.ulValueLen));
        values[type] = room;
    }
    return values;
}
/// The attributes that the object has, with those that differ from zero at first and those that nobody can
/// set. A template sets, reads and finds each, and no other follows. A short value is refused, as is short
/// room; a flag of 2 is stored as false.
std::string rowsOf(Object& object)
{
    Values values = read(object);
    std::string text;
    for (const auto& [type, atFirst] : Values(values)) {
        const bool isBytes = atFirst.empty(), isFlag = atFirst.size() == 1;
        Blob first(isBytes ? 5 : atFirst.size(), 0), second(isBytes ? 6 : atFirst.size(), 0);
        first.at(0) = isFlag ? 1 : 6;
        second.at(0) = isFlag ? 2 : 5;
        const CK_ATTRIBUTE cut = {type, const_cast<CK_BYTE*>(second.data()), CK_ULONG(second.size()) - 1};
        const bool isDate = type == CKA_START_DATE || type == CKA_END_DATE;
        text += attributeType2string_ne(type) + "/" + number2string(type);
        text += isBytes ? " bytes" : isFlag ? " flag" : isDate ? " date" : " number";
        text += atFirst == Blob(atFirst.size(), 0) ? "" : " " + std::to_string(atFirst[0]);
        const auto change = [&, type = type](const Blob& value, const Blob& expected) {
            const CK_ATTRIBUTE wanted = entry(type, value);
            object.setAttribute(&wanted, 1);
            const Values now = read(object);
            const bool isSet = now.at(type) == expected;
            values[type] = isSet ? expected : values[type];
            EXPECT_EQ(now, values) << text;
            EXPECT_EQ(object.testObject(&wanted, 1, 0), now.at(type) == value) << text;
            return isSet;
        };
        const bool isFirst = change(first, first);
        const Blob longer = Blob(first).append(Blob(1, 0));
        const CK_ATTRIBUTE more = entry(type, longer), less = {type, more.pValue, more.ulValueLen - 2};
        EXPECT_EQ(object.testObject(&more, 1, 0), isFirst && !isBytes) << text;
        EXPECT_FALSE(object.testObject(&less, 1, 0)) << text;
        if (!change(second, isFlag ? Blob(1, 0) : second)) {
            text += " fixed, ";
            continue;
        }
        text += ", ";
        EXPECT_EQ(codeOf([&] { object.setAttribute(&cut, 1); }),
                  isBytes ? CKR_OK : CKR_ATTRIBUTE_VALUE_INVALID);
        change(second, isFlag ? Blob(1, 0) : second);
        CK_ATTRIBUTE query = cut;
        EXPECT_EQ(codeOf([&] { object.getAttribute(&query, 1); }), CKR_ATTRIBUTE_TYPE_INVALID);
        EXPECT_EQ(query.ulValueLen, CK_UNAVAILABLE_INFORMATION);
    }
    return text + thrownBy([&] { text += std::to_string(object.getObjectSize()); }) + "\n";
}

} // namespace

TEST(ObjectTest, EachClassHasItsRows)
{
    FakePrivateKey privateKey;
    FakePublicKey publicKey;
    FakeSecretKey secretKey;
    X509PublicKeyCertificate certificate;
    Data data;
    std::string shown;
    for (Object* object :
         std::initializer_list<Object*>{&privateKey, &publicKey, &secretKey, &certificate, &data})
        shown += rowsOf(*object);
    expectFile("unit/core/ObjectTest.txt", shown);
    EXPECT_EQ(thrownBy([&] { data.createCopy(&data); }), "54||");
}

TEST(ObjectTest, TemplatesAreTakenAsAWhole)
{
    Data data;
    data.setLabel(Blob("label"));
    CK_OBJECT_CLASS objectClass = 99;
    char room[9] = "########";
    CK_ATTRIBUTE all[] = {
        {CKA_LABEL, room, 2}, {CKA_CLASS, &objectClass, sizeof objectClass}, {CKA_LABEL, room, 8}};
    EXPECT_EQ(codeOf([&] { data.getAttribute(all, 3); }), CKR_ATTRIBUTE_TYPE_INVALID);
    EXPECT_EQ(objectClass, CKO_DATA);
    EXPECT_EQ(all[0].ulValueLen, CK_UNAVAILABLE_INFORMATION);
    EXPECT_EQ(all[2].ulValueLen, CK_UNAVAILABLE_INFORMATION); // only the first of a type is answered
    EXPECT_EQ(codeOf([&] { data.getAttribute(nullptr, 1); }), CKR_ARGUMENTS_BAD);

    const CK_ATTRIBUTE changes[] = {
        {CKA_CLASS, room, 1}, {CKA_LABEL, room, 4}, {CKA_LABEL, room, 1}, {CKA_PRIVATE, room, 0}};
    EXPECT_EQ(codeOf([&] { data.setAttribute(changes, 4); }), CKR_ATTRIBUTE_VALUE_INVALID);
    EXPECT_EQ(data.getLabel(), Blob("label"));
    data.setAttribute(changes, 3);
    EXPECT_EQ(data.getLabel(), Blob("####"));
    const CK_ATTRIBUTE dangling = {CKA_LABEL, nullptr, 4};
    EXPECT_EQ(codeOf([&] { data.setAttribute(&dangling, 1); }), CKR_ARGUMENTS_BAD);
    EXPECT_EQ(codeOf([&] { data.setAttribute(nullptr, 1); }), CKR_ARGUMENTS_BAD);
    EXPECT_TRUE(data.testObject(nullptr, 0, 0));
    EXPECT_FALSE(data.testObject(changes + 1, 2, 0) || data.testObject(&dangling, 1, 0));
    EXPECT_FALSE(data.testObject(nullptr, 1, 0));
}

TEST(ObjectListTest, SearchesInTheOrderOfHandlesWhatCanBeRead)
{
    struct Unreadable final : Data {
        Blob getValue() override { throw std::bad_alloc(); }
    };
    ObjectList list;
    using Handles = std::vector<CK_OBJECT_HANDLE>;
    const auto find = [&list](CK_ULONG max, bool access = true) {
        Handles found(max);
        CK_ULONG count = 0;
        list.findObjects(found.data(), max, &count, access);
        found.resize(count);
        return found;
    };
    for (int i = 0; i < 5; ++i)
        list.put(std::make_unique<Data>());
    EXPECT_EQ(find(9), Handles({1, 2, 3, 4, 5})); // without an init
    list.findObjectsInit(nullptr, 0);
    EXPECT_EQ(find(2), Handles({1, 2}));
    list.destroy(1);
    list.destroy(5);
    EXPECT_EQ(list.put(std::make_unique<FakePrivateKey>()), 1U); // after the cursor
    EXPECT_EQ(list.put(std::make_unique<FakePrivateKey>()), 5U);
    EXPECT_EQ(find(9, false), Handles({3, 4}));
    EXPECT_EQ(find(9), Handles({5})); // what was passed over is looked at again
    EXPECT_EQ(codeOf([&] { list.getObject(5, false); }), CKR_USER_NOT_LOGGED_IN);
    EXPECT_EQ(codeOf([&] { list.getObject(6, true); }), CKR_OBJECT_HANDLE_INVALID);
    CK_OBJECT_CLASS objectClass = CKO_PRIVATE_KEY;
    const CK_ATTRIBUTE search = {CKA_CLASS, &objectClass, sizeof objectClass};
    list.findObjectsInit(&search, 1);
    objectClass = CKO_DATA; // the search has its own copy
    EXPECT_EQ(find(9), Handles({1, 5}));
    const CK_ATTRIBUTE dangling = {CKA_LABEL, nullptr, CK_UNAVAILABLE_INFORMATION};
    list.findObjectsInit(&dangling, 1);
    EXPECT_EQ(find(9), Handles({}));
    list.findObjectsInit(nullptr, 1);
    EXPECT_EQ(find(9), Handles({}));
    list.put(std::make_unique<Unreadable>());
    const CK_ATTRIBUTE noValue = {CKA_VALUE, nullptr, 0};
    list.findObjectsInit(&noValue, 1);
    EXPECT_EQ(find(9), Handles({2, 3, 4}));
    list.findObjectsFinal();
    EXPECT_EQ(find(9), Handles({1, 2, 3, 4, 5, 6}));
}

TEST(TemplateTest, EntriesAreFoundByTheirType)
{
    CK_OBJECT_CLASS objectClass = CKO_DATA;
    char text[] = "abc";
    const CK_ATTRIBUTE entries[] = {{CKA_ID, nullptr, CK_UNAVAILABLE_INFORMATION},
                                    {CKA_LABEL, text, 3},
                                    {CKA_LABEL, text, 1},
                                    {CKA_CLASS, &objectClass, sizeof objectClass}};
    EXPECT_EQ(findAttribute(CKA_LABEL, entries, 4), entries + 1);
    EXPECT_EQ(findAttribute(CKA_CLASS, entries, 3), nullptr);
    EXPECT_EQ(findAttribute(CKA_LABEL, nullptr, 4), nullptr);
    std::string values;
    for (const CK_ATTRIBUTE_TYPE type : {CKA_LABEL, CKA_ID, CKA_VALUE}) {
        Blob value("before");
        void* pointer = nullptr;
        CK_ULONG length = 9;
        int index = 9;
        const bool isFound = findAttributeValue(type, entries, 4, value);
        EXPECT_EQ(findAttributeValue(type, entries, 4, &pointer, &length), isFound);
        EXPECT_EQ(findAttributeValue(type, entries, 4, nullptr, nullptr), isFound);
        EXPECT_EQ(findAttributeValue(type, entries, 4, &index), isFound);
        values += (isFound ? "[" : "none [") + PKCS11_blob2hex(value) + "] " + std::to_string(int(length)) +
                  " at " + std::to_string(index) + (pointer == text ? " there; " : "; ");
    }
    EXPECT_EQ(values, "[616263] 3 at 1 there; [] -1 at 0; none [] 9 at 9; ");
    CK_OBJECT_CLASS found = 99;
    EXPECT_TRUE(findObjectClass(entries, 4, found) && found == CKO_DATA);
    for (const CK_ATTRIBUTE& bad :
         {CK_ATTRIBUTE{CKA_CLASS, &objectClass, sizeof objectClass - 1},
          CK_ATTRIBUTE{CKA_CLASS, nullptr, sizeof objectClass},
          CK_ATTRIBUTE{CKA_CLASS, &objectClass, CK_UNAVAILABLE_INFORMATION}, entries[1]})
        EXPECT_FALSE(findObjectClass(&bad, 1, found));
    for (const CK_ATTRIBUTE& bad : {CK_ATTRIBUTE{CKA_ID, nullptr, 1}, CK_ATTRIBUTE{CKA_ID, nullptr, ~1UL}})
        EXPECT_EQ(thrownBy([&] { checkTemplate(&bad, 1); }), "7||");
    const CK_ATTRIBUTE oneIsBad[] = {entries[1], {CKA_ID, nullptr, 1}};
    EXPECT_EQ(thrownBy([&] { checkTemplate(oneIsBad, 2); }), "7||");
    EXPECT_EQ(thrownBy([] { checkTemplate(nullptr, 1); }), "7||");
    checkTemplate(nullptr, 0);
    checkTemplate(entries, 4);
}

struct CertificateOnCard final : CardCertificate {
    CardValue readValue() override { return {certificate("rsa.der")}; }
};

TEST(CardCertificateTest, KeepsWhatACallerHasSetBeforeItWasRead)
{
    const std::array<CK_ATTRIBUTE_TYPE, 3> types = {CKA_ISSUER, CKA_SERIAL_NUMBER, CKA_SUBJECT};
    for (const CK_ATTRIBUTE_TYPE set : types) {
        CertificateOnCard object;
        CK_BYTE own[] = {'o', 'w', 'n'};
        const CK_ATTRIBUTE change{set, own, sizeof own};
        object.setAttribute(&change, 1);
        for (const CK_ATTRIBUTE_TYPE type : types) {
            CK_BYTE value[200];
            CK_ATTRIBUTE entry{type, value, sizeof value};
            object.getAttribute(&entry, 1);
            EXPECT_EQ(Blob(value, value + entry.ulValueLen) == Blob("own"), type == set) << set << type;
        }
    }
}
