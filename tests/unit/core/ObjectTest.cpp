#include "pkcs11/core/X509PublicKeyCertificate.h"
#include "tests/unit/core/Fakes.h"

#include <set>

using namespace PKCS11;

namespace {

using Types = std::set<CK_ATTRIBUTE_TYPE>;

const Types kBytes = {CKA_LABEL,         CKA_ID,     CKA_SUBJECT,     CKA_VALUE,
                      CKA_SERIAL_NUMBER, CKA_ISSUER, CKA_APPLICATION, CKA_OBJECT_ID};
const Types kStorage = {CKA_CLASS, CKA_LABEL, CKA_TOKEN, CKA_PRIVATE, CKA_MODIFIABLE};
const Types kKey = {CKA_KEY_TYPE, CKA_ID, CKA_LOCAL, CKA_DERIVE, CKA_START_DATE, CKA_END_DATE};

CK_ATTRIBUTE entry(CK_ATTRIBUTE_TYPE type, const Blob& value)
{
    return {type, const_cast<CK_BYTE*>(value.data()), static_cast<CK_ULONG>(value.size())};
}

/// The object answers these types and no other. Those that can be set are set, read, searched for, and refuse
/// values that are too short; a boolean of 2 counts as false.
void checkRows(Object& object, Types types, const Types& ofBase, const Types& readOnly)
{
    types.insert(ofBase.begin(), ofBase.end());
    types.insert(kStorage.begin(), kStorage.end());
    for (CK_ATTRIBUTE_TYPE type = 0; type < 0x700; ++type) {
        SCOPED_TRACE(type);
        CK_ATTRIBUTE query = {type, nullptr, 0};
        const bool known = types.count(type) != 0;
        ASSERT_EQ(codeOf([&] { object.getAttribute(&query, 1); }),
                  known ? CKR_OK : CKR_ATTRIBUTE_TYPE_INVALID);
        if (!known || readOnly.count(type) != 0)
            continue;
        const bool isBytes = kBytes.count(type) != 0;
        const int size = isBytes ? 5 : static_cast<int>(query.ulValueLen);
        const Blob one(size, 1);
        const Blob two(size, 2);
        const CK_ATTRIBUTE right = entry(type, one);
        const CK_ATTRIBUTE wrong = entry(type, two);
        const CK_ATTRIBUTE cut = {type, right.pValue, right.ulValueLen - 1};
        object.setAttribute(&right, 1);
        EXPECT_TRUE(object.testObject(&right, 1, 0));
        EXPECT_FALSE(object.testObject(&wrong, 1, 0) || object.testObject(&cut, 1, 0));
        EXPECT_EQ(codeOf([&] { object.setAttribute(&cut, 1); }),
                  isBytes ? CKR_OK : CKR_ATTRIBUTE_VALUE_INVALID);
        object.setAttribute(&wrong, 1);
        Blob out(size, 9);
        query = entry(type, out);
        object.getAttribute(&query, 1);
        EXPECT_EQ(out, size == 1 ? Blob(1, 0) : two);
        query.ulValueLen = size - 1UL;
        EXPECT_EQ(codeOf([&] { object.getAttribute(&query, 1); }), CKR_ATTRIBUTE_TYPE_INVALID);
        EXPECT_EQ(query.ulValueLen, CK_UNAVAILABLE_INFORMATION);
    }
}

} // namespace

TEST(Object, EachClassHasItsRows)
{
    FakePrivateKey privateKey;
    FakePublicKey publicKey;
    FakeSecretKey secretKey;
    X509PublicKeyCertificate certificate;
    Data data;
    EXPECT_TRUE(privateKey.getPrivate() && secretKey.getPrivate() && !publicKey.getPrivate() &&
                data.getModifiable());
    EXPECT_EQ(secretKey.getKeyType(), CKK_DES);
    EXPECT_EQ(privateKey.getStartDate().year[0], 0);
    checkRows(privateKey,
              {CKA_SUBJECT, CKA_SENSITIVE, CKA_DECRYPT, CKA_SIGN, CKA_SIGN_RECOVER, CKA_UNWRAP,
               CKA_EXTRACTABLE, CKA_ALWAYS_SENSITIVE, CKA_NEVER_EXTRACTABLE},
              kKey, {CKA_CLASS, CKA_KEY_TYPE});
    checkRows(publicKey, {CKA_SUBJECT, CKA_TRUSTED, CKA_ENCRYPT, CKA_VERIFY, CKA_VERIFY_RECOVER, CKA_WRAP},
              kKey, {CKA_CLASS, CKA_KEY_TYPE});
    checkRows(secretKey,
              {CKA_VALUE, CKA_VALUE_LEN, CKA_SENSITIVE, CKA_ENCRYPT, CKA_DECRYPT, CKA_SIGN, CKA_VERIFY,
               CKA_WRAP, CKA_UNWRAP, CKA_EXTRACTABLE, CKA_ALWAYS_SENSITIVE, CKA_NEVER_EXTRACTABLE},
              kKey, {CKA_CLASS});
    checkRows(certificate, {CKA_ID, CKA_SERIAL_NUMBER, CKA_SUBJECT, CKA_ISSUER, CKA_VALUE},
              {CKA_CERTIFICATE_TYPE, CKA_TRUSTED}, {CKA_CLASS, CKA_CERTIFICATE_TYPE});
    checkRows(data, {CKA_APPLICATION, CKA_OBJECT_ID, CKA_VALUE}, {}, {CKA_CLASS});
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
