#include "tests/unit/core/SessionFixture.h"

using namespace PKCS11;

namespace {

/// An operation without steps of its own.
struct NoSteps final : Mechanism {};

struct Parts final : MechanismSign {
    std::string steps;
    void signUpdate(B, N n) override { steps += "update " + std::to_string(n); }
    void signFinal(B out, N* n) override { steps += " final " + std::to_string(*n) + (out ? "" : "?"); }
};
struct VerifyParts final : MechanismVerify {
    std::string steps;
    void verifyUpdate(B, N n) override { steps += "update " + std::to_string(n); }
    void verifyFinal(B, N n) override { steps += " final " + std::to_string(n); }
    void verifyRecover(B, N*, B, N) override {}
};
struct EncryptParts final : MechanismEncrypt {
    std::string steps;
    void encryptUpdate(B, N n, B out, N*) override
    {
        steps += "update " + std::to_string(n) + (out ? "!" : "");
    }
    void encryptFinal(B, N* n) override { steps += " final " + std::to_string(*n); }
};
struct DecryptParts final : MechanismDecrypt {
    std::string steps;
    void decryptUpdate(B, N n, B out, N*) override
    {
        steps += "update " + std::to_string(n) + (out ? "!" : "");
    }
    void decryptFinal(B, N* n) override { steps += " final " + std::to_string(*n); }
};

using FailureTest = SessionFixture;

} // namespace

TEST_F(FailureTest, AnOperationRefusesTheStepsOfOthers)
{
    NoSteps none;
    const auto refused = [](const char* what, const std::vector<std::function<void()>>& steps) {
        for (const auto& step : steps)
            EXPECT_EQ(thrownBy(step), std::string("70|") + what + "|Mechanism") << &step - steps.data();
    };
    refused("not an encrpyt mechanism",
            {[&] { none.encrypt(in, 4, out, &len); }, [&] { none.encryptUpdate(in, 4, out, &len); },
             [&] { none.encryptFinal(out, &len); }});
    refused("not a decrpyt mechanism",
            {[&] { none.decrypt(in, 4, out, &len); }, [&] { none.decryptUpdate(in, 4, out, &len); },
             [&] { none.decryptFinal(out, &len); }});
    refused("not a generateKey mechanism", {[&] { none.generateKey(&mechanism, nullptr, 0, &made); }});
    refused("not a generateKeyPair mechanism",
            {[&] { none.generateKeyPair(&mechanism, nullptr, 0, nullptr, 0, &made, &second); }});
    refused("not a deriveKey mechanism", {[&] { none.deriveKey(&mechanism, nullptr, 0, nullptr); }});
    refused("not a hash mechanism", {[&] { none.digestInit(); }, [&] { none.digest(in, 4, out, &len); },
                                     [&] { none.digestUpdate(in, 4); }, [&] { none.digestKey(1); },
                                     [&] { none.digestFinal(out, &len); }});
    refused("not a sign mechanism", {[&] { none.sign(in, 4, out, &len); }, [&] { none.signUpdate(in, 4); },
                                     [&] { none.signFinal(out, &len); }});
    refused("not a signrecover mechanism", {[&] { none.signRecover(in, 4, out, &len); }});
    refused("not a verify mechanism", {[&] { none.verify(in, 4, out, 4); }, [&] { none.verifyUpdate(in, 4); },
                                       [&] { none.verifyFinal(out, 4); }});
    refused("not a verifyrecover mechanism", {[&] { none.verifyRecover(out, &len, in, 4); }});
    refused("not a random mechanism", {[&] { none.seedRandom(in, 4); }, [&] { none.generateRandom(in, 4); }});

    MechanismKeygen keygen(CKM_DES_KEY_GEN);
    EXPECT_EQ(keygen.type(), CKM_DES_KEY_GEN);
    SecretKey** key = nullptr;
    PrivateKey** privateKey = nullptr;
    EXPECT_EQ(thrownBy([&] { keygen.generateKey(&mechanism, nullptr, 0, key); }),
              "80000000|CKR_VENDOR_DEFINED|MechansimKeygen::generateKey");
    EXPECT_EQ(
        thrownBy([&] { keygen.generateKeyPair(&mechanism, nullptr, 0, nullptr, 0, nullptr, privateKey); }),
        "80000000|CKR_VENDOR_DEFINED|MechansimKeygen::generateKeyPair");

    Parts sign;
    VerifyParts verify;
    EncryptParts encrypt;
    DecryptParts decrypt;
    len = 9;
    sign.sign(in, 4, out, &len);
    verify.verify(in, 4, out, 9);
    encrypt.encrypt(in, 4, out, &len);
    decrypt.decrypt(in, 4, out, &len);
    for (const std::string& steps : {sign.steps, verify.steps, encrypt.steps, decrypt.steps})
        EXPECT_EQ(steps, "update 4 final 9");
}

TEST_F(FailureTest, TextsSayWhatWentWrongAndWhere)
{
    CK_OBJECT_CLASS objectClass = CKO_DATA;
    CK_BBOOL yes = CK_TRUE;
    CK_ATTRIBUTE both[] = {{CKA_TOKEN, &yes, 1}, {CKA_CLASS, &objectClass, sizeof objectClass}};
    CK_ULONG size = 0;
    const auto fails = [](const std::string& text, const std::function<void()>& call) {
        EXPECT_EQ(thrownBy(call), text);
    };
    const auto login = [&](CK_USER_TYPE type) { return [&, type] { session.login(type, in, 4); }; };
    const auto create = [&] { session.createObject(both, 2, &made); };
    const auto copy = [&] { session.copyObject(kData, both, 2, &made); };
    const auto change = [&] { session.setAttributeValue(kPrivate, both, 1); };
    const auto pair = [&] { session.generateKeyPair(&mechanism, nullptr, 0, nullptr, 0, &made, &second); };
    const auto key = [&] { session.generateKey(&mechanism, nullptr, 0, &made); };
    const auto derive = [&] { session.deriveKey(&mechanism, kPublic, nullptr, 0, &made); };
    const auto wrap = [&] { session.WrapKey(&mechanism, kPublic, kSecret, out, &len); };
    const auto unwrap = [&](CK_BYTE* from, CK_ULONG n, CK_ULONG count) {
        return [&, from, n, count] { session.UnwrapKey(&mechanism, kPrivate, from, n, both, count, &made); };
    };

    Session unopened;
    fails("6||", [&] { unopened.getToken(); });
    fails("54||Session::seedRandom", [&] { unopened.seedRandom(in, 4); });
    fails("54||Session::generateRandom", [&] { unopened.generateRandom(in, 4); });
    fails("7||", [&] { session.seedRandom(nullptr, 4); });
    fails("7||", [&] { session.generateRandom(nullptr, 4); });
    fails("B4|flags not CKF_SERIAL_SESSION|Session::openSession", [&] { openAs(CKF_RW_SESSION); });
    fails("101|CKR_USER_NOT_LOGGED_IN|Session::logout", [&] { session.logout(); });
    fails("101|CKR_USER_NOT_LOGGED_IN|Session::initPIN", [&] { session.initPIN(Blob()); });
    fails("103||Session::login", login(CKU_CONTEXT_SPECIFIC));
    fails("A2||Session::login", [&] { session.login(CKU_USER, in, 65537); });
    const std::vector<CK_BYTE> longest(65536);
    session.login(CKU_USER, longest.data(), longest.size());
    session.logout();
    fails("82|CKR_OBJECT_HANDLE_INVALID|ObjectList::getObject", [&] { session.getObjectSize(9, &size); });
    fails("7||", [&] { session.getObjectSize(kData, nullptr); });
    size = 9;
    session.getObjectSize(kData, &size);
    EXPECT_EQ(size, 0U);

    session.login(CKU_USER, in, 4);
    fails("104|CKR_USER_ANOTHER_ALREADY_LOGGED_IN|Session::login", login(CKU_SO));
    fails("100|CKR_USER_ALREADY_LOGGED_IN|Session::login", login(CKU_USER));
    fails("D0|CKR_TEMPLATE_INCOMPLETE|Session::createObject", [&] { session.createObject(both, 1, &made); });
    script.yields = false;
    fails("82||", create);
    fails("80000000|token->copyObject(...) did not create an object|Session::copyObject(...)", copy);
    fails("54||Session::generateKeyPair", pair);
    fails("54||Session::generateKey", key);
    set(kPrivate, CKA_DERIVE, CK_TRUE);
    fails("54||Session::deriveKey", [&] { session.deriveKey(&mechanism, kPrivate, nullptr, 0, &made); });
    fails("54||Session::digestInit", [&] { session.digestInit(&mechanism); });
    script.yields = true;
    script.produced = 0;
    fails("82||", key); // the generator made none
    script.produced = 3;
    EXPECT_FALSE(isActive());
    fails("68||Session::deriveKey", derive);
    fails("60||Session::getKey", [&] { session.deriveKey(&mechanism, kData, nullptr, 0, &made); });
    mechanism.mechanism = CKM_RSA_X9_31;
    fails("70||Session::deriveKey", derive);
    fails("70|no encrypt flag|Session::encryptInit", [&] { session.encryptInit(&mechanism, kPublic); });
    mechanism.mechanism = CKM_MD5;
    fails("70|CKR_MECHANISM_INVALID|MechanismList::getMechanism",
          [&] { session.signInit(&mechanism, kPrivate); });
    fails("7||MechanismList::getMechanism", [&] { session.signInit(nullptr, kPrivate); });
    mechanism.mechanism = CKM_RSA_PKCS;
    fails("69||Session::WrapKey", [&] { session.WrapKey(&mechanism, kPublic, kData, out, &len); });
    fails("62||Session::WrapKey", wrap);
    fails("110||Session::UnwrapKey", unwrap(nullptr, 3, 2));
    fails("112||Session::UnwrapKey", unwrap(out, 0, 2));
    set(kPrivate, CKA_DECRYPT, CK_TRUE);
    fails("D0||Session::UnwrapKey", unwrap(out, 3, 1));
    fails("54||Session::UnwrapKey", unwrap(out, 3, 2));
    script.produced = 0;
    fails("110||Session::UnwrapKey", unwrap(out, 3, 2));
    fails("82||", pair); // half a pair is not kept
    EXPECT_EQ(objects().highWater(), CK_ULONG{kData});
    script.produced = 3;
    fails("82|CKR_OBJECT_HANDLE_INVALID|ObjectList::getObject",
          [&] { session.UnwrapKey(&mechanism, 9, nullptr, 0, both, 2, &made); });
    auto* secret = static_cast<SecretKey*>(object(kSecret));
    secret->setValue(Blob("abc"));
    fails("62||Session::WrapKey", wrap); // its length was not told
    secret->setValueLen(3);
    fails("7||", [&] { session.WrapKey(&mechanism, kPublic, kSecret, out, nullptr); });
    set(kPublic, CKA_ENCRYPT, CK_TRUE);
    session.WrapKey(&mechanism, kPublic, kSecret, nullptr, &len);
    EXPECT_EQ(len, 3U);
    session.WrapKey(&mechanism, kPublic, kSecret, nullptr, nullptr);
    script.fail = CKR_DEVICE_ERROR;
    for (const char* step : {"digestInit", "generateKey"}) {
        script.failAt = step;
        fails("30||", [&] { *step == 'd' ? session.digestInit(&mechanism) : key(); });
        EXPECT_FALSE(isActive());
    }
    script.fail = CKR_OK;
    objectClass = CKO_CERTIFICATE;
    fails("82||", create); // the token made something else
    const CK_OBJECT_HANDLE bare = objects().put(std::make_unique<Bare>());
    fails("82||", [&] { session.destroyObject(bare); });
    fails("54||", [&] { session.getObjectSize(bare, &size); });
    // Nothing is done before the arguments are right.
    script.called.clear();
    CK_ATTRIBUTE dangling = {CKA_LABEL, nullptr, 4};
    const std::vector<std::function<void()>> badArguments = {
        [&] { session.createObject(&dangling, 1, &made); },
        [&] { session.copyObject(kData, &dangling, 1, &made); },
        [&] { session.setAttributeValue(kData, &dangling, 1); },
        [&] { session.generateKey(&mechanism, &dangling, 1, &made); },
        [&] { session.generateKey(&mechanism, nullptr, 0, nullptr); },
        [&] { session.generateKey(nullptr, nullptr, 0, &made); },
        [&] { session.generateKeyPair(&mechanism, &dangling, 1, nullptr, 0, &made, &second); },
        [&] { session.generateKeyPair(&mechanism, nullptr, 0, &dangling, 1, &made, &second); },
        [&] { session.generateKeyPair(&mechanism, nullptr, 0, nullptr, 0, nullptr, &second); },
        [&] { session.generateKeyPair(&mechanism, nullptr, 0, nullptr, 0, &made, nullptr); },
        [&] { session.generateKeyPair(nullptr, nullptr, 0, nullptr, 0, &made, &second); },
        [&] { session.deriveKey(&mechanism, kPrivate, &dangling, 1, &made); },
        [&] { session.UnwrapKey(&mechanism, kPrivate, out, 3, &dangling, 1, &made); },
        [&] { session.UnwrapKey(&mechanism, kPrivate, out, 3, both, 2, nullptr); },
        [&] { session.createObject(both, 2, nullptr); },
        [&] { session.copyObject(kData, both, 2, nullptr); },
        [&] { session.deriveKey(&mechanism, kPrivate, nullptr, 0, nullptr); },
        [&] { session.digestInit(nullptr); },
        [&] { session.findObjects(nullptr, 1, &size); },
        [&] { session.findObjects(&made, 1, nullptr); },
    };
    for (const auto& call : badArguments)
        EXPECT_EQ(thrownBy(call), "7||") << &call - badArguments.data();
    EXPECT_EQ(script.called, "");
    restart();
    fails("90||Session::generateKeyPair", pair);
    fails("90||Session::generateKey", key);
    fails("90||", derive);
    session.logout();

    script.tokenFlags = CKF_LOGIN_REQUIRED;
    fails("101|CKR_USER_NOT_LOGGED_IN|ObjectList::getObject", change);
    fails("101|CKR_USER_NOT_LOGGED_IN|Session::copyObject", copy);
    fails("101|CKR_USER_NOT_LOGGED_IN|Session::destroyObject", [&] { session.destroyObject(kData); });
    fails("101||Session::generateKeyPair", pair);
    fails("101||Session::generateKey", key);
    openAs(CKF_SERIAL_SESSION);
    fails("103|CKR_USER_TYPE_INVALID|Session::login", login(CKU_SO));
    for (const auto& [where, call] : std::vector<std::pair<const char*, std::function<void()>>>{
             {"createObject", create},
             {"copyObject", copy},
             {"setAttributeValue", change},
             {"generateKeyPair", pair},
             {"generateKey", key},
             {"initPIN", [&] { session.initPIN(Blob()); }},
             {"setPIN", [&] { session.setPIN(Blob(), Blob()); }}})
        fails(std::string("B5|CKR_SESSION_READ_ONLY|Session::") + where, call);
    openAs(CKF_SERIAL_SESSION | CKF_RW_SESSION);
    session.login(CKU_USER, in, 4);
    set(kPrivate, CKA_MODIFIABLE, CK_FALSE);
    fails("10|CKR_ATTRIBUTE_READ_ONLY|Session::setAttributeValue", change);
}
