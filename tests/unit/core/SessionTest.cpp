// What the methods of a session do in each situation, in SessionTest.txt beside this file; and its list.
#include "pkcs11/core/Session.h"

#include "pkcs11/core/SessionList.h"
#include "tests/support/Expected.h"
#include "tests/unit/core/Fakes.h"

#include <array>
#include <map>

using namespace PKCS11;

namespace {

constexpr CK_OBJECT_HANDLE kPrivate = 1, kPublic = 2, kSecret = 3, kData = 4, kBare = 5, kNone = 9;

/// A session for reading and writing, its user logged in, on a token with an object of each kind where
/// everything is permitted; and what its methods are given.
struct World {
    World()
    {
        script = Script();
        openAs(CKF_SERIAL_SESSION | CKF_RW_SESSION);
        for (const CK_MECHANISM_TYPE type : {CKM_RSA_PKCS, CKM_SHA256_RSA_PKCS})
            token().getMechanismList()->add({type, 2048, 512, ~0UL});
        token().getMechanismList()->add({CKM_RSA_X9_31, 2048, 512, 0});
        objects().put(std::make_unique<FakePrivateKey>());
        objects().put(std::make_unique<FakePublicKey>());
        objects().put(std::make_unique<FakeSecretKey>());
        objects().put(std::make_unique<FakeData>());
        objects().put(std::make_unique<Bare>());
        secret().setValue(Blob("abc"));
        secret().setValueLen(3);
        permit(CK_TRUE);
        session.login(CKU_USER, in, 1);
    }
    void openAs(CK_FLAGS flags) { session.openSession(&slot, 7, flags, nullptr, nullptr); }
    Token& token() { return *session.getToken(); }
    ObjectList& objects() { return *token().getObjectList(); }
    template <class Kind>
    Kind& object(CK_OBJECT_HANDLE handle)
    {
        return dynamic_cast<Kind&>(*objects().getObject(handle, true));
    }
    SecretKey& secret() { return object<SecretKey>(kSecret); }
    void permit(CK_BBOOL value,
                std::initializer_list<CK_ATTRIBUTE_TYPE> uses = {CKA_SIGN, CKA_DECRYPT, CKA_VERIFY,
                                                                 CKA_VERIFY_RECOVER, CKA_ENCRYPT, CKA_DERIVE})
    {
        for (const CK_ATTRIBUTE_TYPE use : uses)
            for (const CK_OBJECT_HANDLE key : {kPrivate, kPublic, kSecret}) {
                const CK_ATTRIBUTE attribute = {use, &value, sizeof value};
                object<Storage>(key).setAttribute(&attribute, 1);
            }
    }
    void useHandle(CK_OBJECT_HANDLE handle) { mine = theirs = wrapped = data = handle; }
    void readOnly() { openAs(CKF_SERIAL_SESSION); }
    void needLogin() { session.logout(), script.tokenFlags = CKF_LOGIN_REQUIRED; }
    void omitClass() { entries = both + 1, count = 1; }
    CK_ULONG pinLength() const { return std::max(n, CK_ULONG{1}); } // the editions differ in an empty one
    void give(B bytes, CK_ULONG size) { input = bytes, n = size; }
    void failStep(CK_RV code) { begin(), script.fail = code, script.failsInside = true; }
    void loginSO() { session.logout(), session.login(CKU_SO, in, 2); }
    void begin() { session.signInit(&mechanism, kPrivate); }
    void pull()
    {
        script.cardPresent = []() -> bool { throw PKCS11Exception(CKR_DEVICE_REMOVED); };
    }
    void giveNothing() { entries = &dangling, place = nullptr, output = nullptr, length = nullptr; }

    FakeSlot slot;
    Session session, unopened;
    Session* s = &session;
    CK_MECHANISM mechanism = {CKM_RSA_PKCS, nullptr, 0};
    M with = &mechanism;
    CK_OBJECT_HANDLE mine = kPrivate, theirs = kPublic, wrapped = kSecret, data = kData;
    CK_BYTE in[4] = {1, 2, 3, 4}, out[4] = {};
    B input = in, output = out;
    CK_ULONG n = 4, m = 3, len = 5; // lengths of input and output, and where the latter is told
    CK_ULONG* length = &len;
    CK_OBJECT_CLASS objectClass = CKO_SECRET_KEY;
    CK_BBOOL onToken = CK_TRUE;
    CK_ATTRIBUTE both[2] = {{CKA_CLASS, &objectClass, sizeof objectClass}, {CKA_TOKEN, &onToken, 1}};
    CK_ATTRIBUTE dangling = {CKA_LABEL, nullptr, 4};
    A entries = both, entries2 = both;
    CK_ULONG count = 2;
    CK_OBJECT_HANDLE made = 0, made2 = 0;
    CK_OBJECT_HANDLE *place = &made, *place2 = &made2;
    std::string noted;
};
using W = World;

struct Call {
    const char* name;
    void (*run)(W&);
};
const Call kCalls[] = {
    {"signInit", [](W& w) { w.s->signInit(w.with, w.mine); }},
    {"verifyInit", [](W& w) { w.s->verifyInit(w.with, w.theirs); }},
    {"verifyRecoverInit", [](W& w) { w.s->verifyRecoverInit(w.with, w.theirs); }},
    {"encryptInit", [](W& w) { w.s->encryptInit(w.with, w.theirs); }},
    {"decryptInit", [](W& w) { w.s->decryptInit(w.with, w.mine); }},
    {"digestInit", [](W& w) { w.s->digestInit(w.with); }},
    {"sign", [](W& w) { w.s->sign(w.input, w.n, w.output, w.length); }},
    {"signUpdate", [](W& w) { w.s->signUpdate(w.input, w.n); }},
    {"signFinal", [](W& w) { w.s->signFinal(w.output, w.length); }},
    {"verify", [](W& w) { w.s->verify(w.input, w.n, w.output, w.m); }},
    {"verifyUpdate", [](W& w) { w.s->verifyUpdate(w.input, w.n); }},
    {"verifyFinal", [](W& w) { w.s->verifyFinal(w.output, w.m); }},
    {"verifyRecover", [](W& w) { w.s->verifyRecover(w.input, w.n, w.output, w.length); }},
    {"encrypt", [](W& w) { w.s->encrypt(w.input, w.n, w.output, w.length); }},
    {"encryptUpdate", [](W& w) { w.s->encryptUpdate(w.input, w.n, w.output, w.length); }},
    {"encryptFinal", [](W& w) { w.s->encryptFinal(w.output, w.length); }},
    {"decrypt", [](W& w) { w.s->decrypt(w.input, w.n, w.output, w.length); }},
    {"decryptUpdate", [](W& w) { w.s->decryptUpdate(w.input, w.n, w.output, w.length); }},
    {"decryptFinal", [](W& w) { w.s->decryptFinal(w.output, w.length); }},
    {"digest", [](W& w) { w.s->digest(w.input, w.n, w.output, w.length); }},
    {"digestUpdate", [](W& w) { w.s->digestUpdate(w.input, w.n); }},
    {"digestFinal", [](W& w) { w.s->digestFinal(w.output, w.length); }},
    {"createObject", [](W& w) { w.s->createObject(w.entries, w.count, w.place); }},
    {"copyObject", [](W& w) { w.s->copyObject(w.data, w.entries, w.count, w.place); }},
    {"destroyObject", [](W& w) { w.s->destroyObject(w.data); }},
    {"getObjectSize", [](W& w) { w.s->getObjectSize(w.data, w.length); }},
    {"getAttributeValue", [](W& w) { w.s->getAttributeValue(w.mine, w.entries, w.count); }},
    {"setAttributeValue", [](W& w) { w.s->setAttributeValue(w.mine, w.entries, w.count); }},
    {"search",
     [](W& w) {
         CK_OBJECT_HANDLE found[9] = {};
         const auto next = [&](CK_ULONG max) {
             w.s->findObjects(max != 0 ? found : nullptr, max, &w.m);
             w.noted += " " + std::to_string(w.m);
         };
         w.s->findObjectsInit(nullptr, 0);
         next(0), next(1), next(9), next(9);
         w.s->findObjectsFinal();
         next(9);
     }},
    {"findObjects", [](W& w) { w.s->findObjects(w.place, 1, w.length); }},
    {"generateKey", [](W& w) { w.s->generateKey(w.with, w.entries, w.count, w.place); }},
    {"generateKeyPair",
     [](W& w) { w.s->generateKeyPair(w.with, w.entries, w.count, w.entries2, 1, w.place, w.place2); }},
    {"deriveKey", [](W& w) { w.s->deriveKey(w.with, w.mine, w.entries, w.count, w.place); }},
    {"WrapKey", [](W& w) { w.s->WrapKey(w.with, w.theirs, w.wrapped, w.output, w.length); }},
    {"UnwrapKey", [](W& w) { w.s->UnwrapKey(w.with, w.mine, w.input, w.n, w.entries, w.count, w.place); }},
    {"seedRandom", [](W& w) { w.s->seedRandom(w.input, w.n); }},
    {"generateRandom", [](W& w) { w.s->generateRandom(w.output, w.m); }},
    {"login", [](W& w) { w.s->login(CKU_USER, w.input, w.pinLength()); }},
    {"login as SO", [](W& w) { w.s->login(CKU_SO, w.input, w.pinLength()); }},
    {"login for a key", [](W& w) { w.s->login(CKU_CONTEXT_SPECIFIC, w.input, w.n); }},
    {"logout", [](W& w) { w.s->logout(); }},
    {"initPIN", [](W& w) { w.s->initPIN(Blob("12345")); }},
    {"setPIN", [](W& w) { w.s->setPIN(Blob("1234"), Blob("12345")); }},
    {"getSessionInfo",
     [](W& w) {
         const CK_SESSION_INFO info = w.s->getSessionInfo();
         w.noted += " slot " + std::to_string(info.slotID) + " flags " + std::to_string(info.flags) +
                    " state " + std::to_string(info.state);
     }},
};

std::vector<CK_BYTE> kLong(65537);

/// Told is what differs from the situation named before the last comma, or from the first one.
const struct {
    const char* name;
    void (*arrange)(W&);
} kSituations[] = {
    {"in peace", [](W&) {}},
    {"the administrator is logged in", [](W& w) { w.loginSO(); }},
    {"the administrator is logged in, by another session",
     [](W& w) { w.session.logout(), w.token().LoginSO(Blob("so")); }},
    {"the administrator is logged in, but the user should be",
     [](W& w) { w.loginSO(), script.tokenFlags = CKF_LOGIN_REQUIRED; }},
    {"opened with flags that count for nothing", [](W& w) { w.openAs(~0UL); }},
    {"to read only", [](W& w) { w.readOnly(); }},
    {"to read only, nothing onto the token", [](W& w) { w.readOnly(), w.onToken = 0; }},
    {"to read only, onto the token by another byte", [](W& w) { w.readOnly(), w.onToken = 0xFF; }},
    {"to read only, onto the token in eight bytes",
     [](W& w) { w.readOnly(), w.both[1].pValue = &w.objectClass, w.both[1].ulValueLen = 8; }},
    {"to read only, onto the token in no byte", [](W& w) { w.readOnly(), w.both[1].ulValueLen = 0; }},
    {"to read only, a template without class", [](W& w) { w.readOnly(), w.omitClass(); }},
    {"to read only, nobody is logged in", [](W& w) { w.readOnly(), w.session.logout(); }},
    {"to read only, the administrator is logged in", [](W& w) { w.loginSO(), w.readOnly(); }},
    {"not opened", [](W& w) { w.s = &w.unopened; }},
    {"without a card", [](W& w) { w.pull(); }},
    {"without a card, nor anything else", [](W& w) { w.pull(), w.giveNothing(); }},
    {"nothing is offered", [](W&) { script.yields = Script::nothing; }},
    {"nothing but the operation is offered", [](W&) { script.yields = Script::noSteps; }},
    {"nothing is produced", [](W&) { script.produced = 0; }},
    {"nothing is produced, a template without class", [](W& w) { script.produced = 0, w.omitClass(); }},
    {"the card fails", [](W&) { script.fail = CKR_DEVICE_ERROR; }},
    {"the card fails in the step", [](W&) { script.fail = CKR_DEVICE_ERROR, script.failsInside = true; }},
    {"no use of a key is permitted", [](W& w) { w.permit(CK_FALSE); }},
    {"to sign and to verify is not permitted",
     [](W& w) {
         w.permit(CK_FALSE, {CKA_SIGN, CKA_VERIFY});
     }},
    {"to decrypt and to recover is not permitted",
     [](W& w) {
         w.permit(CK_FALSE, {CKA_DECRYPT, CKA_VERIFY_RECOVER});
     }},
    {"keys may not be changed", [](W& w) { w.object<Storage>(kPrivate).setModifiable(CK_FALSE); }},
    {"with a mechanism that does nothing", [](W& w) { w.mechanism.mechanism = CKM_RSA_X9_31; }},
    {"with a mechanism that RSA keys do not know", [](W& w) { w.mechanism.mechanism = CKM_SHA256_RSA_PKCS; }},
    {"with a mechanism that is not listed", [](W& w) { w.mechanism.mechanism = CKM_MD5; }},
    {"without a mechanism", [](W& w) { w.with = nullptr; }},
    {"with secret keys", [](W& w) { w.useHandle(kSecret); }},
    {"with secret keys, not permitted", [](W& w) { w.permit(CK_FALSE), w.useHandle(kSecret); }},
    {"with the other keys", [](W& w) { w.useHandle(kPublic), w.theirs = w.data = kPrivate; }},
    {"with the other keys, not to be changed",
     [](W& w) {
         w.useHandle(kPublic), w.theirs = w.data = kPrivate,
                               w.object<Storage>(kPublic).setModifiable(CK_FALSE);
     }},
    {"with data", [](W& w) { w.useHandle(kData); }},
    {"with data, of no list", [](W& w) { w.useHandle(kBare); }},
    {"with unknown handles", [](W& w) { w.useHandle(kNone); }},
    {"with unknown handles, nothing to unwrap", [](W& w) { w.useHandle(kNone), w.n = 0; }},
    {"with unknown handles, data to wrap", [](W& w) { w.useHandle(kNone), w.wrapped = kData; }},
    {"to wrap what is unknown", [](W& w) { w.wrapped = kNone; }},
    {"to wrap what has no value", [](W& w) { w.secret().setValue(Blob()); }},
    {"to wrap what tells no length", [](W& w) { w.secret().setValueLen(0); }},
    {"a template for data", [](W& w) { w.objectClass = CKO_DATA; }},
    {"a template for a certificate", [](W& w) { w.objectClass = CKO_CERTIFICATE; }},
    {"a template with a class of one byte", [](W& w) { w.both[0].ulValueLen = 1; }},
    {"a template without class", [](W& w) { w.omitClass(); }},
    {"a template without class, nor anything else", [](W& w) { w.entries = nullptr, w.count = 0; }},
    {"a template without a value", [](W& w) { w.entries = &w.dangling, w.count = 1; }},
    {"the second template without a value", [](W& w) { w.entries2 = &w.dangling; }},
    {"nowhere to put a handle", [](W& w) { w.place = nullptr; }},
    {"nowhere to put the second handle", [](W& w) { w.place2 = nullptr; }},
    {"room for two bytes", [](W& w) { w.len = 2; }},
    {"room for three bytes", [](W& w) { w.len = 3; }},
    {"no output", [](W& w) { w.output = nullptr; }},
    {"no length", [](W& w) { w.length = nullptr; }},
    {"no output, nor its length", [](W& w) { w.output = nullptr, w.length = nullptr; }},
    {"nobody is logged in", [](W& w) { w.session.logout(); }},
    {"nobody is logged in, but should be", [](W& w) { w.needLogin(); }},
    {"nobody is logged in, but should be, a template without a value",
     [](W& w) { w.needLogin(), w.entries = &w.dangling, w.count = 1; }},
    {"nobody is logged in, but should be, to read only", [](W& w) { w.readOnly(), w.needLogin(); }},
    {"nobody is logged in, but should be, another session logs the user in",
     [](W& w) { w.needLogin(), w.token().Login(Blob("pin")); }},
    {"nobody is logged in, but should be, another session logged the user out",
     [](W& w) { script.tokenFlags = CKF_LOGIN_REQUIRED, w.token().Logout(); }},
    {"nobody is logged in, but should be, with unknown handles",
     [](W& w) { w.needLogin(), w.useHandle(kNone); }},
    {"nobody is logged in, but should be, with data of no list",
     [](W& w) { w.needLogin(), w.useHandle(kBare); }},
    {"nobody is logged in, the administrator was", [](W& w) { w.loginSO(), w.session.logout(); }},
    {"nobody is logged in, another session logged the administrator out",
     [](W& w) { w.loginSO(), w.token().Logout(); }},
    {"nobody is logged in, the administrator was on another card",
     [](W& w) { w.loginSO(), w.session.closeSession(), w.slot.getToken()->Logout(); }},
    {"nobody is logged in, a long input", [](W& w) { w.session.logout(), w.give(kLong.data(), 65536); }},
    {"nobody is logged in, a longer input", [](W& w) { w.session.logout(), w.give(kLong.data(), 65537); }},
    {"nobody is logged in, no input of a longer length",
     [](W& w) { w.session.logout(), w.give(nullptr, 65537); }},
    {"nobody is logged in, no input of no length", [](W& w) { w.session.logout(), w.give(nullptr, 0); }},
    {"nobody is logged in, input of no length", [](W& w) { w.session.logout(), w.n = 0; }},
    {"nobody is logged in, input of no length, nowhere to put anything",
     [](W& w) { w.session.logout(), w.n = 0, w.giveNothing(); }},
    {"active", [](W& w) { w.begin(); }},
    {"active, with a mechanism that is not listed", [](W& w) { w.begin(), w.mechanism.mechanism = CKM_MD5; }},
    {"active, with the public key while the user should be logged in",
     [](W& w) { w.needLogin(), w.session.verifyInit(&w.mechanism, kPublic), w.data = kPublic; }},
    {"active, nowhere to put anything", [](W& w) { w.begin(), w.giveNothing(); }},
    {"active, without a card", [](W& w) { w.begin(), w.pull(); }},
    {"active, no output", [](W& w) { w.begin(), w.output = nullptr, w.m = 0; }},
    {"active, no output, but a length", [](W& w) { w.begin(), w.output = nullptr; }},
    {"active, no length", [](W& w) { w.begin(), w.length = nullptr; }},
    {"active, no input", [](W& w) { w.begin(), w.input = nullptr; }},
    {"active, the step fails", [](W& w) { w.failStep(CKR_DEVICE_ERROR); }},
    {"active, the step is a wrong one", [](W& w) { w.failStep(CKR_MECHANISM_INVALID); }},
    {"active, the step finds no memory", [](W& w) { w.failStep(CKR_HOST_MEMORY); }},
    {"active, without steps", [](W& w) { script.yields = Script::noSteps, w.begin(); }},
    {"active, without steps, a signature in parts", [](W& w) { script.yields = Script::parts, w.begin(); }},
    {"active, without steps, a verification in parts",
     [](W& w) { script.yields = Script::parts, w.session.verifyInit(&w.mechanism, kPublic); }},
    {"active, without steps, an encryption in parts",
     [](W& w) { script.yields = Script::parts, w.session.encryptInit(&w.mechanism, kPublic); }},
    {"active, without steps, a decryption in parts",
     [](W& w) { script.yields = Script::parts, w.session.decryptInit(&w.mechanism, kPrivate); }},
};

/// What it throws, or what became of it.
std::string outcome(const Call& call, void (*arrange)(W&))
{
    W w;
    arrange(w);
    const auto state = [&] {
        CK_STATE now = 99;
        codeOf([&] { now = w.s->getSessionState(w.s->flags()); });
        return now;
    };
    const CK_STATE before = state();
    const CK_ULONG room = w.len;
    const Blob userPin = w.token().userPin(), soPin = w.token().soPin();
    const std::array<const Object*, 3> keys = {&w.object<Object>(kPrivate), &w.object<Object>(kPublic),
                                               &w.secret()};
    const auto isActive = [&] { return codeOf([&] { w.s->digestInit(nullptr); }) == CKR_OPERATION_ACTIVE; };
    const auto keyInUse = [&] {
        return std::find_if(keys.begin(), keys.end(), [&](auto& key) { return w.s->usesObject(key); }) -
               keys.begin();
    };
    const bool wasActive = isActive();
    const auto keyBefore = keyInUse();
    script.method = call.name;
    script.called.clear();
    w.s->beginCall();
    std::string text = thrownBy([&] { call.run(w); });
    const bool failed = !text.empty();
    if (const size_t at = text.rfind('|') + 1; text.substr(at) == "Session::" + script.method)
        text = text.substr(0, at) + "itself";
    const auto tell = [&](bool condition, const std::string& what) { text += condition ? " " + what : ""; };
    tell(failed && !script.called.empty(), "from the card");
    text += failed ? "" : script.called;
    script = Script();
    text += w.noted;
    tell(w.len != room, "length " + std::to_string(w.len));
    tell(w.out[0] != 0, "out " + PKCS11_blob2hex(Blob(w.out, w.out + 4)));
    for (const CK_OBJECT_HANDLE made : {w.made, w.made2})
        if (made != 0) {
            auto& object = w.object<Storage>(made);
            tell(true, "made " + std::to_string(made) + " of class " + std::to_string(object.getClass()));
            tell(object.getOnToken() != CK_FALSE, "on token");
            if (auto* key = dynamic_cast<SecretKey*>(&object); key != nullptr && !key->getValue().empty())
                tell(true, PKCS11_blob2hex(key->getValue()));
        }
    codeOf([&] { tell(w.object<Storage>(kPrivate).getOnToken() != CK_FALSE, "moves the key"); });
    tell(w.objects().highWater() != kBare + CK_ULONG{w.made != 0} + CK_ULONG{w.made2 != 0},
         "and more objects");
    tell(state() != before, "state " + std::to_string(state()));
    tell(w.token().userPin() != userPin, "user PIN " + PKCS11_blob2hex(w.token().userPin().slice(0, 5)));
    tell(w.token().soPin() != soPin, "SO PIN " + PKCS11_blob2hex(w.token().soPin().slice(0, 5)));
    tell(keyInUse() != keyBefore, "with key " + std::to_string(keyInUse() + 1));
    tell(isActive() != wasActive, wasActive ? "ends" : "begins");
    return text.empty() ? " done" : text;
}

} // namespace

TEST(SessionTest, EachMethodInEachSituation)
{
    std::string shown;
    std::map<std::string, std::map<std::string, std::string>> all; // of a situation and a method
    for (const auto& [name, arrange] : kSituations) {
        const std::string situation = name;
        const size_t comma = situation.rfind(", ");
        const auto& before = all[comma != situation.npos ? situation.substr(0, comma) : kSituations[0].name];
        std::map<std::string, std::string> methods;
        for (const Call& call : kCalls) {
            const std::string& text = all[situation][call.name] = outcome(call, arrange);
            if (&before == &all[situation] || before.at(call.name) != text)
                methods[text] += std::string(" ") + call.name;
        }
        shown += situation + ":";
        for (const auto& [text, names] : methods)
            shown += (text[0] == ' ' ? "" : " ") + text + " =" + names + ";";
        shown += "\n";
    }
    expectFile("unit/core/SessionTest.txt", shown);
}

TEST(SessionTest, KeysTakeTheMechanismsOfTheirType)
{
    std::string taken;
    for (const CK_KEY_TYPE keyType : {CKK_RSA, CKK_EC, CKK_DSA}) {
        W w;
        w.object<FakePrivateKey>(kPrivate).type = keyType;
        taken += "key";
        for (w.mechanism.mechanism = 0; w.mechanism.mechanism < 0x1050; ++w.mechanism.mechanism) {
            w.token().getMechanismList()->add({w.mechanism.mechanism, 0, 0, CKF_SIGN});
            w.session.cleanMechanism();
            if (codeOf([&] { w.begin(); }) == CKR_OK && keyType != CKK_DSA)
                taken += " " + std::to_string(w.mechanism.mechanism);
        }
        taken += w.session.usesObject(&w.object<Object>(kPrivate)) ? " and the last\n" : "\n";
    }
    EXPECT_EQ(taken, "key 1 2 3 4 5 6 7 8 9 12 13 14\nkey 4161 4162\nkey and the last\n");
}

TEST(SessionTest, AFetchedTokenServesOneCallAndAnotherCardEndsTheOperation)
{
    W w;
    int fetches = 0;
    script.cardPresent = [&] { return ++fetches > 0; };
    w.session.beginCall();
    w.begin();
    w.session.sign(w.in, 4, w.out, &w.len);
    EXPECT_EQ(fetches, 1);
    w.begin();
    script.cardPresent = [&] { return w.session.closeSession(), true; }; // as when the card was exchanged
    w.session.beginCall();
    EXPECT_EQ(codeOf([&] { w.session.signUpdate(w.in, 4); }), CKR_OPERATION_NOT_INITIALIZED);
    EXPECT_FALSE(w.session.isPaused());
}

TEST(MechanismTest, RefusesWhatNoSessionAsksFor)
{
    Mechanism none;
    CK_BYTE in[4] = {}, out[4];
    CK_ULONG len = 4;
    EXPECT_EQ(thrownBy([&] { none.digestKey(1); }), "70|not a hash mechanism|Mechanism");
    EXPECT_EQ(thrownBy([&] { none.signRecover(in, 4, out, &len); }),
              "70|not a signrecover mechanism|Mechanism");
    EXPECT_EQ(thrownBy([&] { none.seedRandom(in, 4); }), "70|not a random mechanism|Mechanism");
    EXPECT_EQ(thrownBy([&] { none.generateRandom(in, 4); }), "70|not a random mechanism|Mechanism");
    EXPECT_EQ(thrownBy([&] { none.generateKey(nullptr, nullptr, 0, &len); }),
              "70|not a generateKey mechanism|Mechanism");
    EXPECT_EQ(thrownBy([&] { none.generateKeyPair(nullptr, nullptr, 0, nullptr, 0, &len, &len); }),
              "70|not a generateKeyPair mechanism|Mechanism");
    EXPECT_EQ(MechanismKeygen(CKM_DES_KEY_GEN).type(), CKM_DES_KEY_GEN);
}

TEST(SessionListTest, HandlesOutliveTheCard)
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
        EXPECT_EQ(thrownBy([&] { list.getSession(invalid); }),
                  "B3|CKR_SESSION_HANDLE_INVALID|SessionList::getSession");
    script = Script();
    EXPECT_FALSE(list.getSession(1)->isPaused());
    list.closeSession(2); // a paused one
    EXPECT_EQ(codeOf([&] { list.closeSession(2); }), CKR_SESSION_HANDLE_INVALID);
    script.cardPresent = [] { return false; };
    list.closeAllSessions(1);
    EXPECT_TRUE(list.peekSession(1) == nullptr && list.peekSession(3) != nullptr);
    list.pauseAllSessions2(3);
    EXPECT_EQ(codeOf([&] { list.closeSession(3); }), CKR_SESSION_HANDLE_INVALID);
    EXPECT_EQ(list.peekSession(3), nullptr); // it would count as one of the slot's for ever
}
