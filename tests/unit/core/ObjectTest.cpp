#include "pkcs11/core/Template.h"
#include "pkcs11/core/X509PublicKeyCertificate.h"
#include "pkcs11/frontend/trace/Names.h"
#include "tests/unit/core/Fakes.h"

#include <cstring>
#include <map>
#include <numeric>

using namespace PKCS11;

namespace {

/// An attribute as the class's members show it.
struct Row {
    CK_ATTRIBUTE_TYPE type;
    int size; ///< of the value in bytes, 0 for bytes of any number
    std::function<Blob(Object&)> get;
    std::function<void(Object&, const Blob&)> set; ///< absent for a read-only attribute
    Blob atFirst;
};
using Rows = std::vector<Row>;

template <class T>
Blob blobOf(const T& value)
{
    if constexpr (std::is_same_v<T, Blob>)
        return value;
    else
        return Blob::fromMemory(&value, sizeof value);
}
template <class C, class V>
Row readOnly(CK_ATTRIBUTE_TYPE type, V (C::*get)(), V atFirst)
{
    return {type,
            sizeof(V),
            [get](Object& o) { return blobOf((static_cast<C&>(o).*get)()); },
            {},
            blobOf(atFirst)};
}
template <class C, class V, class A>
Row row(CK_ATTRIBUTE_TYPE type, V (C::*get)(), void (C::*set)(A), V atFirst = V())
{
    Row made = readOnly(type, get, atFirst);
    made.set = [set](Object& o, const Blob& bytes) {
        V value{};
        if constexpr (std::is_same_v<V, Blob>)
            value = bytes;
        else
            std::memcpy(&value, bytes.data(), sizeof value);
        (static_cast<C&>(o).*set)(value);
    };
    if (std::is_same_v<V, Blob>)
        made.size = 0;
    return made;
}

CK_ATTRIBUTE entry(CK_ATTRIBUTE_TYPE type, const Blob& value)
{
    return {type, const_cast<CK_BYTE*>(value.data()), static_cast<CK_ULONG>(value.size())};
}
/// What templates of one entry read from the object, in one text.
std::string read(Object& object, const std::vector<CK_ATTRIBUTE_TYPE>& types)
{
    std::string text;
    for (const CK_ATTRIBUTE_TYPE type : types) {
        Blob room(20, 0);
        CK_ATTRIBUTE query = entry(type, room);
        if (codeOf([&] { object.getAttribute(&query, 1); }) != CKR_OK)
            continue;
        room.resize(static_cast<int>(query.ulValueLen));
        text += number2string(type) + "=" + PKCS11_blob2hex(room) + "\n";
    }
    return text;
}

/// The object answers these attributes and no other. What a member sets a template reads, finds and compares,
/// and the other way round, and no other attribute follows. Too short values are refused; a boolean of 2 is
/// stored as false.
void checkRows(Object& object, CK_OBJECT_CLASS objectClass, Rows rows, const Rows& ofBase = {})
{
    rows.insert(rows.end(), ofBase.begin(), ofBase.end());
    const bool isHidden = objectClass == CKO_PRIVATE_KEY || objectClass == CKO_SECRET_KEY;
    for (const Row& one :
         Rows{readOnly(CKA_CLASS, &Object::getClass, objectClass),
              row(CKA_LABEL, &Storage::getLabel, &Storage::setLabel),
              row(CKA_TOKEN, &Storage::getOnToken, &Storage::setOnToken),
              row(CKA_PRIVATE, &Storage::getPrivate, &Storage::setPrivate, CK_BBOOL(isHidden ? 1 : 0)),
              row(CKA_MODIFIABLE, &Storage::getModifiable, &Storage::setModifiable, CK_BBOOL(CK_TRUE))})
        rows.push_back(one);
    std::map<CK_ATTRIBUTE_TYPE, Blob> expected;
    for (const Row& one : rows)
        expected[one.type] = one.atFirst;
    std::vector<CK_ATTRIBUTE_TYPE> types(0x700);
    std::iota(types.begin(), types.end(), 0UL);
    const auto expectAll = [&] {
        std::string text;
        for (const auto& [type, value] : expected)
            text += number2string(type) + "=" + PKCS11_blob2hex(value) + "\n";
        EXPECT_EQ(read(object, types), text);
    };
    expectAll();
    types.resize(0);
    for (const auto& [type, value] : expected)
        types.push_back(type);
    unsigned char fresh = 2;
    for (const Row& one : rows) {
        SCOPED_TRACE(one.type);
        EXPECT_EQ(one.get(object), expected[one.type]);
        const bool isBoolean = one.size == 1;
        const Blob first(one.size == 0 ? 5 : one.size, isBoolean ? 1 : ++fresh);
        const Blob second(one.size == 0 ? 6 : one.size, isBoolean ? 2 : ++fresh);
        const CK_ATTRIBUTE right = entry(one.type, first), wrong = entry(one.type, second);
        const CK_ATTRIBUTE cut = {one.type, right.pValue, right.ulValueLen - 1};
        object.setAttribute(&right, 1);
        if (one.set)
            expected[one.type] = first;
        EXPECT_EQ(one.get(object), expected[one.type]);
        EXPECT_EQ(object.testObject(&right, 1, 0), one.set != nullptr);
        EXPECT_FALSE(object.testObject(&wrong, 1, 0) || object.testObject(&cut, 1, 0));
        expectAll();
        if (!one.set)
            continue;
        EXPECT_EQ(codeOf([&] { object.setAttribute(&cut, 1); }),
                  one.size == 0 ? CKR_OK : CKR_ATTRIBUTE_VALUE_INVALID);
        one.set(object, second);
        expected[one.type] = isBoolean ? Blob(1, 0) : second;
        expectAll();
        Blob room(second);
        CK_ATTRIBUTE query = {one.type, room.data(), wrong.ulValueLen - 1};
        EXPECT_EQ(codeOf([&] { object.getAttribute(&query, 1); }), CKR_ATTRIBUTE_TYPE_INVALID);
        EXPECT_EQ(query.ulValueLen, CK_UNAVAILABLE_INFORMATION);
    }
}

} // namespace

TEST(Object, EachClassHasItsRows)
{
    const Rows dates = {row(CKA_START_DATE, &Key::getStartDate, &Key::setStartDate),
                        row(CKA_END_DATE, &Key::getEndDate, &Key::setEndDate),
                        row(CKA_ID, &Key::getID, &Key::setID), row(CKA_LOCAL, &Key::getLocal, &Key::setLocal),
                        row(CKA_DERIVE, &Key::getDerive, &Key::setDerive)};
    Rows key = dates;
    key.push_back(readOnly(CKA_KEY_TYPE, &Key::getKeyType, CK_KEY_TYPE(CKK_RSA)));
    FakePrivateKey privateKey;
    using P = PrivateKey;
    checkRows(privateKey, CKO_PRIVATE_KEY,
              {row(CKA_SUBJECT, &P::getSubject, &P::setSubject),
               row(CKA_SENSITIVE, &P::getSensitive, &P::setSensitive),
               row(CKA_DECRYPT, &P::getDecrypt, &P::setDecrypt), row(CKA_SIGN, &P::getSign, &P::setSign),
               row(CKA_SIGN_RECOVER, &P::getSignRecovery, &P::setSignRecovery),
               row(CKA_UNWRAP, &P::getUnwrap, &P::setUnwrap),
               row(CKA_EXTRACTABLE, &P::getExtractable, &P::setExtractable),
               row(CKA_ALWAYS_SENSITIVE, &P::getAlwaysSensitive, &P::setAlwaysSensitive),
               row(CKA_NEVER_EXTRACTABLE, &P::getNeverExtractable, &P::setNeverExtractable)},
              key);
    FakePublicKey publicKey;
    using Q = PublicKey;
    checkRows(
        publicKey, CKO_PUBLIC_KEY,
        {row(CKA_SUBJECT, &Q::getSubject, &Q::setSubject), row(CKA_TRUSTED, &Q::getTrusted, &Q::setTrusted),
         row(CKA_ENCRYPT, &Q::getEncrypt, &Q::setEncrypt), row(CKA_VERIFY, &Q::getVerify, &Q::setVerify),
         row(CKA_VERIFY_RECOVER, &Q::getVerifyRecovery, &Q::setVerifyRecovery),
         row(CKA_WRAP, &Q::getWrap, &Q::setWrap)},
        key);
    FakeSecretKey secretKey;
    using S = SecretKey;
    checkRows(
        secretKey, CKO_SECRET_KEY,
        {row(CKA_KEY_TYPE, &S::getKeyType, &S::setKeyType, CK_KEY_TYPE(CKK_DES)),
         row(CKA_VALUE, &S::getValue, &S::setValue), row(CKA_VALUE_LEN, &S::getValueLen, &S::setValueLen),
         row(CKA_SENSITIVE, &S::getSensitive, &S::setSensitive),
         row(CKA_ENCRYPT, &S::getEncrypt, &S::setEncrypt), row(CKA_DECRYPT, &S::getDecrypt, &S::setDecrypt),
         row(CKA_SIGN, &S::getSign, &S::setSign), row(CKA_VERIFY, &S::getVerify, &S::setVerify),
         row(CKA_WRAP, &S::getWrap, &S::setWrap), row(CKA_UNWRAP, &S::getUnwrap, &S::setUnwrap),
         row(CKA_EXTRACTABLE, &S::getExtractable, &S::setExtractable),
         row(CKA_ALWAYS_SENSITIVE, &S::getAlwaysSensitive, &S::setAlwaysSensitive),
         row(CKA_NEVER_EXTRACTABLE, &S::getNeverExtractable, &S::setNeverExtractable)},
        dates);
    secretKey.setValueLen(7);
    EXPECT_EQ(secretKey.getObjectSize(), 7U);
    X509PublicKeyCertificate certificate;
    using X = X509PublicKeyCertificate;
    checkRows(
        certificate, CKO_CERTIFICATE,
        {row(CKA_ID, &X::getID, &X::setID), row(CKA_SERIAL_NUMBER, &X::getSerialNumber, &X::setSerialNumber),
         row(CKA_SUBJECT, &X::getSubject, &X::setSubject), row(CKA_ISSUER, &X::getIssuer, &X::setIssuer),
         row(CKA_VALUE, &X::getValue, &X::setValue), row(CKA_TRUSTED, &X::getTrusted, &X::setTrusted),
         readOnly(CKA_CERTIFICATE_TYPE, &X::getCertificateType, CK_CERTIFICATE_TYPE(CKC_X_509))});
    Data data;
    checkRows(data, CKO_DATA,
              {row(CKA_APPLICATION, &Data::getApplication, &Data::setApplication),
               row(CKA_OBJECT_ID, &Data::getObjectIdentifier, &Data::setObjectIdentifier),
               row(CKA_VALUE, &Data::getValue, &Data::setValue)});
    certificate.setValue(Blob("12345"));
    EXPECT_EQ(certificate.getObjectSize(), 5U);
    EXPECT_EQ(data.getObjectSize(), 6U);
    EXPECT_EQ(thrownBy([&] { publicKey.getObjectSize(); }), "54||");
    EXPECT_EQ(thrownBy([&] { data.createCopy(&data); }), "54||");
}

TEST(Object, TemplatesAreTakenAsAWhole)
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
    EXPECT_TRUE(data.testObject(nullptr, 0, 0));
    EXPECT_FALSE(data.testObject(changes + 1, 2, 0) || data.testObject(&dangling, 1, 0));
    EXPECT_FALSE(data.testObject(nullptr, 1, 0));
}

TEST(ObjectList, SearchesInTheOrderOfHandles)
{
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
    EXPECT_EQ(list.put(std::make_unique<FakePrivateKey>()), 1U); // behind the cursor
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
    list.findObjectsFinal();
    EXPECT_EQ(find(9), Handles({1, 2, 3, 4, 5}));
}

TEST(Template, EntriesAreFoundByTheirType)
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
    Blob value("before");
    EXPECT_TRUE(findAttributeValue(CKA_LABEL, entries, 4, value));
    EXPECT_EQ(value, Blob("abc"));
    EXPECT_TRUE(findAttributeValue(CKA_ID, entries, 4, value));
    EXPECT_TRUE(value.empty());
    value = Blob("before");
    EXPECT_FALSE(findAttributeValue(CKA_VALUE, entries, 4, value));
    EXPECT_TRUE(value.empty());
    void* pointer = nullptr;
    CK_ULONG length = 0;
    int index = 9;
    EXPECT_TRUE(findAttributeValue(CKA_LABEL, entries, 4, &pointer, &length) && pointer == text &&
                length == 3);
    EXPECT_TRUE(findAttributeValue(CKA_LABEL, entries, 4, nullptr, nullptr));
    EXPECT_FALSE(findAttributeValue(CKA_VALUE, entries, 4, &pointer, &length));
    EXPECT_TRUE(findAttributeValue(CKA_CLASS, entries, 4, &index) && index == 3);
    EXPECT_FALSE(findAttributeValue(CKA_VALUE, entries, 4, &index));
    CK_OBJECT_CLASS found = 99;
    EXPECT_TRUE(findObjectClass(entries, 4, found) && found == CKO_DATA);
    for (const CK_ATTRIBUTE& bad :
         {CK_ATTRIBUTE{CKA_CLASS, &objectClass, sizeof objectClass - 1},
          CK_ATTRIBUTE{CKA_CLASS, nullptr, sizeof objectClass},
          CK_ATTRIBUTE{CKA_CLASS, &objectClass, CK_UNAVAILABLE_INFORMATION}, entries[1]})
        EXPECT_FALSE(findObjectClass(&bad, 1, found));
    for (const CK_ATTRIBUTE& bad : {CK_ATTRIBUTE{CKA_ID, nullptr, 1}, CK_ATTRIBUTE{CKA_ID, nullptr, ~1UL}})
        EXPECT_EQ(thrownBy([&] { checkTemplate(&bad, 1); }), "7||");
    EXPECT_EQ(thrownBy([] { checkTemplate(nullptr, 1); }), "7||");
    checkTemplate(nullptr, 0);
    checkTemplate(entries, 4);
}

/// Cannot be read.
struct Unreadable final : Data {
    Blob getValue() override { throw std::bad_alloc(); }
};

TEST(ObjectList, AnObjectThatCannotBeReadIsPassedOver)
{
    ObjectList list;
    list.put(std::make_unique<Unreadable>());
    list.put(std::make_unique<Data>());
    const CK_ATTRIBUTE wanted = {CKA_VALUE, nullptr, 0};
    CK_OBJECT_HANDLE found[2] = {};
    CK_ULONG count = 0;
    list.findObjectsInit(&wanted, 1);
    list.findObjects(found, 2, &count, true);
    EXPECT_EQ(count, 1U);
    EXPECT_EQ(found[0], 2U);
}
