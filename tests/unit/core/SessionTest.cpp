#include "pkcs11/core/SessionList.h"
#include "tests/unit/core/SessionFixture.h"

#include <cstring>

using namespace PKCS11;

namespace {

using S = Session;
using SessionTest = SessionFixture;

} // namespace

TEST_F(SessionTest, StepsEndOrKeepTheOperation)
{
    CK_BYTE *input = in, *output = out;
    const struct {
        std::string step;
        const char* ends; // by s(uccess), q(uery), f(ailure), w(rong step)
        std::function<Failure()> run;
    } rows[] = {
        {"sign", "sfw", [&] { return failureOf(&S::sign, input, 4, output, &len); }},
        {"signUpdate", "", [&] { return failureOf(&S::signUpdate, input, 4); }},
        {"signFinal", "sfw", [&] { return failureOf(&S::signFinal, output, &len); }},
        {"verify", "sqf", [&] { return failureOf(&S::verify, input, 4, output, 0); }},
        {"verifyUpdate", "", [&] { return failureOf(&S::verifyUpdate, input, 4); }},
        {"verifyFinal", "sf", [&] { return failureOf(&S::verifyFinal, output, 0); }},
        {"verifyRecover", "sfw", [&] { return failureOf(&S::verifyRecover, input, 4, output, &len); }},
        {"encrypt", "sf", [&] { return failureOf(&S::encrypt, input, 4, output, &len); }},
        {"encryptUpdate", "f", [&] { return failureOf(&S::encryptUpdate, input, 4, output, &len); }},
        {"encryptFinal", "sf", [&] { return failureOf(&S::encryptFinal, output, &len); }},
        {"decrypt", "sf", [&] { return failureOf(&S::decrypt, input, 4, output, &len); }},
        {"decryptUpdate", "f", [&] { return failureOf(&S::decryptUpdate, input, 4, output, &len); }},
        {"decryptFinal", "sf", [&] { return failureOf(&S::decryptFinal, output, &len); }},
        {"digest", "sf", [&] { return failureOf(&S::digest, input, 4, output, &len); }},
        {"digestUpdate", "f", [&] { return failureOf(&S::digestUpdate, input, 4); }},
        {"digestFinal", "sf", [&] { return failureOf(&S::digestFinal, output, &len); }},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.step);
        session.cleanMechanism();
        const std::string named = row.step == "encryptFinal" ? "encryptUpdate" : row.step;
        EXPECT_EQ(row.run(), Failure(CKR_OPERATION_NOT_INITIALIZED, "Session::" + named));
        for (const char kind : {'s', 'q', 'f', 'w'}) {
            restart();
            script.fail = kind == 'f' ? CKR_DEVICE_ERROR : kind == 'w' ? CKR_MECHANISM_INVALID : CKR_OK;
            output = kind == 'q' || kind == 'f' ? nullptr : out;
            EXPECT_EQ(row.run().first, script.fail);
            EXPECT_EQ(script.called, row.step);
            EXPECT_EQ(!isActive(), std::strchr(row.ends, kind) != nullptr) << kind;
            script.fail = CKR_OK;
        }
        input = nullptr; // a length without its bytes is a failure like any other
        restart();
        const bool takesInput = row.step.find("Final") == std::string::npos;
        EXPECT_EQ(row.run().first, takesInput ? CKR_ARGUMENTS_BAD : CKR_OK);
        EXPECT_EQ(!isActive(), std::strchr(row.ends, takesInput ? 'f' : 's') != nullptr);
        input = in;
    }
    restart();
    EXPECT_EQ(call(&S::sign, in, 4, out, nullptr), CKR_ARGUMENTS_BAD);
    restart();
    EXPECT_EQ(call(&S::verify, in, 4, nullptr, 1), CKR_ARGUMENTS_BAD);
    restart();
    EXPECT_EQ(call(&S::verifyFinal, nullptr, 1), CKR_ARGUMENTS_BAD);
}

TEST_F(SessionTest, OperationsStartWithTheRightKey)
{
    const struct {
        std::string name;
        void (Session::*init)(CK_MECHANISM*, CK_OBJECT_HANDLE);
        CK_OBJECT_HANDLE key, otherKey;
        CK_ATTRIBUTE_TYPE usage;
        std::string factory;
        CK_RV withSecretKey;
    } rows[] = {
        {"signInit", &S::signInit, kPrivate, kPublic, CKA_SIGN, "sign", CKR_OK},
        {"verifyInit", &S::verifyInit, kPublic, kPrivate, CKA_VERIFY, "verify", CKR_OK},
        {"encryptInit", &S::encryptInit, kPublic, kPrivate, CKA_ENCRYPT, "encrypt", CKR_OK},
        {"decryptInit", &S::decryptInit, kPrivate, kPublic, CKA_DECRYPT, "decrypt", CKR_OK},
        {"verifyRecoverInit", &S::verifyRecoverInit, kPublic, kPrivate, CKA_VERIFY_RECOVER, "recover",
         CKR_KEY_HANDLE_INVALID},
    };
    CK_MECHANISM sha256 = {CKM_SHA256_RSA_PKCS, nullptr, 0};
    CK_MECHANISM incapable = {CKM_RSA_X9_31, nullptr, 0};
    CK_MECHANISM unlisted = {CKM_MD5, nullptr, 0};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const std::string where = "Session::" + row.name;
        const auto init = [&](CK_MECHANISM* with, CK_OBJECT_HANDLE key) {
            session.cleanMechanism();
            Failure failure = failureOf(row.init, with, key);
            EXPECT_EQ(isActive(), failure.first == CKR_OK);
            return failure;
        };
        const Failure notPermitted(CKR_KEY_FUNCTION_NOT_PERMITTED, where);
        set(row.key, row.usage, CK_FALSE);
        EXPECT_EQ(init(&mechanism, row.key), notPermitted);
        set(row.key, row.usage, CK_TRUE);
        EXPECT_EQ(init(&sha256, row.key), notPermitted);
        EXPECT_EQ(init(&mechanism, row.key).first, CKR_OK);
        EXPECT_EQ(script.called, row.factory);
        EXPECT_EQ(failureOf(row.init, &mechanism, row.key), Failure(CKR_OPERATION_ACTIVE, where));
        if (row.withSecretKey == CKR_OK) {
            EXPECT_EQ(init(&sha256, kSecret), notPermitted);
            set(kSecret, row.usage, CK_TRUE);
        }
        EXPECT_EQ(init(&sha256, kSecret).first, row.withSecretKey);
        EXPECT_EQ(script.called, row.withSecretKey == CKR_OK ? "secret " + row.factory : row.factory);
        EXPECT_EQ(init(&incapable, row.key), Failure(CKR_MECHANISM_INVALID, where));
        EXPECT_EQ(init(&unlisted, row.key).first, CKR_MECHANISM_INVALID);
        EXPECT_EQ(init(nullptr, row.key).first, CKR_ARGUMENTS_BAD);
        EXPECT_EQ(init(&mechanism, 9).first, CKR_OBJECT_HANDLE_INVALID);
        const std::string named = row.name == "encryptInit" ? "Session::verifyInit" : where;
        EXPECT_EQ(init(&mechanism, row.otherKey), Failure(CKR_KEY_HANDLE_INVALID, named));
        script.yields = false;
        EXPECT_EQ(init(&mechanism, row.key), Failure(CKR_FUNCTION_NOT_SUPPORTED, where));
        script.yields = true;
    }
    const auto signsWith = [&](CK_KEY_TYPE keyType, CK_MECHANISM_TYPE type) {
        session.getToken()->getMechanismList()->add({type, 0, 0, CKF_SIGN});
        static_cast<FakePrivateKey*>(object(kPrivate))->type = keyType;
        CK_MECHANISM with = {type, nullptr, 0};
        session.cleanMechanism();
        return call(&S::signInit, &with, kPrivate) == CKR_OK;
    };
    EXPECT_TRUE(signsWith(CKK_RSA, CKM_SHA1_RSA_PKCS_PSS) && signsWith(CKK_EC, CKM_ECDSA_SHA1));
    EXPECT_FALSE(signsWith(CKK_RSA, CKM_RSA_X9_31_KEY_PAIR_GEN) || signsWith(CKK_EC, CKM_RSA_PKCS));
    EXPECT_TRUE(signsWith(CKK_DSA, CKM_SHA256_RSA_PKCS));
    session.cleanMechanism();
    EXPECT_EQ(call(&S::digestInit, &mechanism), CKR_OK);
    EXPECT_TRUE(isActive());
}

TEST_F(SessionTest, LoginRules)
{
    enum { nobody, user, so };
    const struct {
        CK_FLAGS open;
        int before;
        CK_USER_TYPE type;
        CK_RV code;
        CK_STATE state; // after the call
    } rows[] = {
        {7, nobody, CKU_USER, CKR_OK, CKS_RW_USER_FUNCTIONS},
        {4, nobody, CKU_USER, CKR_OK, CKS_RO_USER_FUNCTIONS},
        {7, nobody, CKU_SO, CKR_OK, CKS_RW_SO_FUNCTIONS},
        {4, nobody, CKU_SO, CKR_USER_TYPE_INVALID, CKS_RO_PUBLIC_SESSION},
        {4, user, CKU_SO, CKR_USER_TYPE_INVALID, CKS_RO_USER_FUNCTIONS},
        {7, user, CKU_SO, CKR_USER_ANOTHER_ALREADY_LOGGED_IN, CKS_RW_USER_FUNCTIONS},
        {7, so, CKU_USER, CKR_USER_ANOTHER_ALREADY_LOGGED_IN, CKS_RW_SO_FUNCTIONS},
        {4, so, CKU_USER, CKR_USER_ANOTHER_ALREADY_LOGGED_IN, CKS_RO_PUBLIC_SESSION},
        {4, so, CKU_CONTEXT_SPECIFIC, CKR_USER_TYPE_INVALID, CKS_RO_PUBLIC_SESSION},
        {4, user, CKU_USER, CKR_USER_ALREADY_LOGGED_IN, CKS_RO_USER_FUNCTIONS},
        {7, user, CKU_CONTEXT_SPECIFIC, CKR_USER_ALREADY_LOGGED_IN, CKS_RW_USER_FUNCTIONS},
        {7, so, CKU_SO, CKR_USER_ALREADY_LOGGED_IN, CKS_RW_SO_FUNCTIONS},
        {7, nobody, CKU_CONTEXT_SPECIFIC, CKR_USER_TYPE_INVALID, CKS_RW_PUBLIC_SESSION},
    };
    Token& token = *session.getToken();
    for (const auto& row : rows) {
        SCOPED_TRACE(&row - rows);
        openAs(row.open);
        token.Logout();
        if (row.before != nobody)
            row.before == user ? token.Login(Blob("x")) : token.LoginSO(Blob("x"));
        EXPECT_EQ(call(&S::login, row.type, in, 4), row.code);
        EXPECT_EQ((row.type == CKU_SO ? token.soPin() : token.userPin()) == Blob(in, in + 4),
                  row.code == CKR_OK);
        const CK_SESSION_INFO info = session.getSessionInfo();
        EXPECT_EQ(info.state, row.state);
        EXPECT_EQ(info.flags, row.open & 6);
        const bool isSO = row.state == CKS_RW_SO_FUNCTIONS;
        const CK_RV access = row.open == CKF_SERIAL_SESSION ? CKR_SESSION_READ_ONLY : CKR_OK;
        EXPECT_EQ(call(&S::setPIN, Blob(), Blob()), access);
        EXPECT_TRUE(access != CKR_OK || script.called == (isSO ? "SetSOPIN" : "SetPIN"));
        EXPECT_EQ(call(&S::initPIN, Blob()), isSO || access != CKR_OK ? access : CKR_USER_NOT_LOGGED_IN);
        const bool isPublic = row.state == CKS_RO_PUBLIC_SESSION || row.state == CKS_RW_PUBLIC_SESSION;
        EXPECT_EQ(call(&S::logout), isPublic ? CKR_USER_NOT_LOGGED_IN : CKR_OK);
        if (!isPublic && access == CKR_OK) {
            session.setPIN(Blob(), Blob()); // as the session saw the state last
            EXPECT_EQ(script.called, "SetPIN");
        }
    }
    session.login(CKU_SO, in, 4);
    session.setPIN(Blob(), Blob());
    EXPECT_EQ(script.called, "SetSOPIN");
    session.logout();
    EXPECT_EQ(call(&S::login, CKU_USER, nullptr, 1), CKR_ARGUMENTS_BAD);
}

TEST_F(SessionTest, ObjectsFollowTheSessionsRights)
{
    CK_OBJECT_CLASS objectClass = CKO_DATA;
    CK_BBOOL yes = CK_TRUE;
    CK_ATTRIBUTE both[] = {{CKA_CLASS, &objectClass, sizeof objectClass}, {CKA_TOKEN, &yes, 1}};
    EXPECT_EQ(call(&S::createObject, both, 2, &made), CKR_OK);
    EXPECT_EQ(made, 5U);
    EXPECT_EQ(call(&S::copyObject, kData, both, 2, &made), CKR_OK);
    EXPECT_TRUE(static_cast<Storage*>(object(made))->getOnToken());
    EXPECT_EQ(call(&S::copyObject, kData, both + 1, 1, &made), CKR_OK);
    EXPECT_TRUE(static_cast<Storage*>(object(made))->getOnToken());
    EXPECT_EQ(call(&S::setAttributeValue, kData, both, 2), CKR_OK);
    script.tokenFlags = CKF_LOGIN_REQUIRED;
    EXPECT_EQ(call(&S::getAttributeValue, kPrivate, both, 1), CKR_USER_NOT_LOGGED_IN);
    CK_ULONG count = 9;
    CK_OBJECT_HANDLE found[9] = {};
    session.findObjectsInit(nullptr, 0);
    session.findObjects(found, 9, &count);
    EXPECT_EQ(count, 5U); // all but the private and the secret key
    EXPECT_EQ(call(&S::findObjects, nullptr, 1, &count), CKR_ARGUMENTS_BAD);
    session.findObjects(found, 9, &count);
    EXPECT_EQ(count, 0U);
    session.findObjectsFinal();
    session.findObjects(found, 9, &count);
    EXPECT_EQ(count, 5U);
    script = Script();
    openAs(CKF_SERIAL_SESSION);
    EXPECT_EQ(call(&S::createObject, both, 1, &made), CKR_OK);
    both[1].ulValueLen = 0; // does not ask for the token
    EXPECT_EQ(call(&S::createObject, both, 2, &made), CKR_ATTRIBUTE_VALUE_INVALID);
    EXPECT_EQ(call(&S::destroyObject, kData), CKR_OK);
    EXPECT_EQ(call(&S::destroyObject, kData), CKR_OBJECT_HANDLE_INVALID);
    struct OnCard final : Data {
        void Delete() override { script.call("deleted from the card"); }
    };
    session.destroyObject(objects().put(std::make_unique<OnCard>()));
    EXPECT_EQ(script.called, "deleted from the card");
}

TEST_F(SessionTest, KeysAreMadeDerivedAndWrapped)
{
    session.generateKeyPair(&mechanism, nullptr, 0, nullptr, 0, &second, &made);
    EXPECT_TRUE(made == 5 && second == 6 && !isActive());
    EXPECT_EQ(object(made)->getClass(), CKO_PRIVATE_KEY);
    EXPECT_EQ(call(&S::generateKey, &mechanism, nullptr, 0, &made), CKR_OK);
    EXPECT_TRUE(object(made)->getClass() == CKO_SECRET_KEY && !isActive());
    session.destroyObject(made);
    set(kPrivate, CKA_DERIVE, CK_TRUE);
    EXPECT_EQ(call(&S::deriveKey, &mechanism, kPrivate, nullptr, 0, &made), CKR_OK);
    EXPECT_TRUE(made == 7 && isActive()); // a derivation stays active
    EXPECT_TRUE(session.usesObject(object(kPrivate)));
    session.cleanMechanism();

    set(kPublic, CKA_ENCRYPT, CK_TRUE);
    set(kPrivate, CKA_DECRYPT, CK_TRUE);
    const auto wrap = [&](auto* to, auto* size) {
        return call(&S::WrapKey, &mechanism, kPublic, kSecret, to, size);
    };
    auto* secret = static_cast<SecretKey*>(object(kSecret));
    secret->setValueLen(3);
    EXPECT_EQ(wrap(out, &len), CKR_KEY_SIZE_RANGE);
    secret->setValue(Blob("abc"));
    len = 2;
    EXPECT_EQ(wrap(out, &len), CKR_BUFFER_TOO_SMALL);
    EXPECT_TRUE(len == 3 && out[0] == 0 && !isActive());
    EXPECT_EQ(wrap(out, &len), CKR_OK);

    CK_OBJECT_CLASS objectClass = CKO_SECRET_KEY;
    CK_ATTRIBUTE attributes[] = {{CKA_CLASS, &objectClass, sizeof objectClass}};
    session.UnwrapKey(&mechanism, kPrivate, out, 3, attributes, 1, &made);
    EXPECT_EQ(static_cast<SecretKey*>(object(made))->getValue(), Blob("abc"));
}

TEST_F(SessionTest, AFetchedTokenServesOneCallAndAnotherCardEndsTheOperation)
{
    int fetches = 0;
    script.cardPresent = [&] { return ++fetches > 0; };
    session.beginCall();
    restart();
    EXPECT_EQ(call(&S::sign, in, 4, out, &len), CKR_OK);
    EXPECT_EQ(fetches, 1);
    restart();
    EXPECT_TRUE(session.usesObject(object(kPrivate)));
    script.cardPresent = [&] { return session.closeSession(), true; }; // as when the card was exchanged
    session.beginCall();
    EXPECT_EQ(call(&S::sign, in, 4, out, &len), CKR_OPERATION_NOT_INITIALIZED);
    EXPECT_FALSE(session.isPaused());
    script = Script();
    session.login(CKU_SO, in, 4);
    Token& token = *session.getToken();
    session.closeSession();
    token.Logout();
    session.setPIN(Blob(), Blob());
    EXPECT_EQ(script.called, "SetPIN"); // a session that comes back has the state of the card that is there
}

TEST(SessionList, HandlesOutliveTheCard)
{
    script = Script();
    FakeSlot slot;
    SessionList list;
    CK_SESSION_HANDLE handle = 0;
    int asked = 0;
    script.cardPresent = [&] { return ++asked > 1; };
    for (const CK_SLOT_ID slotID : {1, 1, 2}) // the first one meets the card at the second attempt
        list.openSession(&slot, slotID, CKF_SERIAL_SESSION, nullptr, nullptr, &handle);
    EXPECT_TRUE(asked == 4 && handle == 3);
    list.getSession(3)->getToken();
    EXPECT_EQ(asked, 5);
    EXPECT_EQ(codeOf([&] { list.pauseAllSessions2(9); }), CKR_OBJECT_HANDLE_INVALID);
    list.pauseAllSessions2(2);
    EXPECT_TRUE(list.peekSession(1)->isPaused() && list.peekSession(2)->isPaused());
    EXPECT_FALSE(list.peekSession(3)->isPaused());
    script.cardPresent = [] { return false; };
    for (const CK_SESSION_HANDLE invalid : {0, 1, 9})
        EXPECT_EQ(codeOf([&] { list.getSession(invalid); }), CKR_SESSION_HANDLE_INVALID);
    script = Script();
    EXPECT_FALSE(list.getSession(1)->isPaused());
    list.closeSession(2); // a paused one
    EXPECT_EQ(codeOf([&] { list.closeSession(2); }), CKR_SESSION_HANDLE_INVALID);
    script.cardPresent = [] { return false; };
    list.closeAllSessions(1);
    EXPECT_TRUE(list.peekSession(1) == nullptr && list.peekSession(3) != nullptr);
}
