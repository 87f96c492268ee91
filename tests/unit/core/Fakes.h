/// A slot with a token, keys and operations that do what the script says.
#pragma once

#include "pkcs11/core/Data.h"
#include "pkcs11/core/Mechanism.h"
#include "pkcs11/core/MechanismList.h"
#include "pkcs11/core/PrivateKey.h"
#include "pkcs11/core/PublicKey.h"
#include "pkcs11/core/SecretKey.h"
#include "pkcs11/pcsc/Slot.h"
#include "pkcs11/token/Token.h"
#include "tests/unit/token/TestBytes.h"

#include <functional>

namespace PKCS11 {

struct Script {
    CK_RV fail = CKR_OK; // what every step, factory and token call throws
    std::string failAt;  // only the one of this name, if it is given
    bool yields = true;  // whether the factories have something
    CK_FLAGS tokenFlags = 0;
    CK_ULONG produced = 3; // length of an output
    std::string called;    // the last step, factory or token call
    std::function<bool()> cardPresent = [] { return true; };
    void call(const std::string& name)
    {
        called = name;
        if (fail != CKR_OK && (failAt.empty() || failAt == name))
            throw PKCS11Exception(fail);
    }
};
inline Script script;

using A = CK_ATTRIBUTE*;
using B = CK_BYTE*;
using I = MechanismInfo*;
using M = CK_MECHANISM*;
using N = CK_ULONG;

inline void invert(const char* step, B in, N n, B out, N* outLen)
{
    script.call(step);
    *outLen = script.produced;
    for (N i = 0; out != nullptr && i < n; ++i)
        out[i] = static_cast<CK_BYTE>(~in[i]);
}

std::unique_ptr<MechanismKeygen> make(const char* factory);

struct FakePrivateKey : PrivateKey {
    CK_KEY_TYPE type = CKK_RSA;
    CK_KEY_TYPE getKeyType() override { return type; }
    std::unique_ptr<Mechanism> createDeriveMechanism(M, I) override { return make("derive"); }
    std::unique_ptr<Mechanism> createSignMechanism(M, I) override { return make("sign"); }
    std::unique_ptr<Mechanism> createDecryptMechanism(M, I) override { return make("decrypt"); }
    std::unique_ptr<Mechanism> createSignRecoveryMechanism(M, I) override { return nullptr; }
};

struct FakePublicKey : PublicKey {
    CK_KEY_TYPE getKeyType() override { return CKK_RSA; }
    std::unique_ptr<Mechanism> createDeriveMechanism(M, I) override { return nullptr; }
    std::unique_ptr<Mechanism> createVerifyMechanism(M, I) override { return make("verify"); }
    std::unique_ptr<Mechanism> createVerifyRecoveryMechanism(M, I) override { return make("recover"); }
    std::unique_ptr<Mechanism> createEncryptMechanism(M, I) override { return make("encrypt"); }
};

struct FakeSecretKey : SecretKey {
    std::unique_ptr<Mechanism> createDeriveMechanism(M, I) override { return nullptr; }
    std::unique_ptr<Mechanism> createSignMechanism(M, I) override { return make("secret sign"); }
    std::unique_ptr<Mechanism> createDecryptMechanism(M, I) override { return make("secret decrypt"); }
    std::unique_ptr<Mechanism> createVerifyMechanism(M, I) override { return make("secret verify"); }
    std::unique_ptr<Mechanism> createEncryptMechanism(M, I) override { return make("secret encrypt"); }
};

/// Knows every step. An output is the input with its bits inverted.
struct FakeOperation : MechanismKeygen {
    FakeOperation() : MechanismKeygen(CKM_RSA_PKCS) {}
    void sign(B in, N n, B out, N* len) override { invert("sign", in, n, out, len); }
    void signUpdate(B, N) override { script.call("signUpdate"); }
    void signFinal(B, N*) override { script.call("signFinal"); }
    void verify(B, N, B, N) override { script.call("verify"); }
    void verifyUpdate(B, N) override { script.call("verifyUpdate"); }
    void verifyFinal(B, N) override { script.call("verifyFinal"); }
    void verifyRecover(B out, N* len, B in, N n) override { invert("verifyRecover", in, n, out, len); }
    void encrypt(B in, N n, B out, N* len) override { invert("encrypt", in, n, out, len); }
    void encryptUpdate(B, N, B, N*) override { script.call("encryptUpdate"); }
    void encryptFinal(B, N*) override { script.call("encryptFinal"); }
    void decrypt(B in, N n, B out, N* len) override { invert("decrypt", in, n, out, len); }
    void decryptUpdate(B, N, B, N*) override { script.call("decryptUpdate"); }
    void decryptFinal(B, N*) override { script.call("decryptFinal"); }
    void digestInit() override { script.call("digestInit"); }
    void digest(B in, N n, B out, N* len) override { invert("digest", in, n, out, len); }
    void digestUpdate(B, N) override { script.call("digestUpdate"); }
    void digestFinal(B, N*) override { script.call("digestFinal"); }
    void deriveKey(M, A, N, Key** key) override { *key = std::make_unique<FakeSecretKey>().release(); }
    void generateKey(M, A, N, SecretKey** key) override
    {
        script.call("generateKey");
        if (script.produced != 0)
            *key = std::make_unique<FakeSecretKey>().release();
    }
    void generateKeyPair(M, A, N, A, N, PublicKey** publicKey, PrivateKey** privateKey) override
    {
        *privateKey = std::make_unique<FakePrivateKey>().release();
        if (script.produced != 0)
            *publicKey = std::make_unique<FakePublicKey>().release();
    }
};

inline std::unique_ptr<MechanismKeygen> make(const char* factory)
{
    script.call(factory);
    return script.yields ? std::make_unique<FakeOperation>() : nullptr;
}

template <class T>
std::unique_ptr<Object> makeObject(A attributes, N count)
{
    auto object = std::make_unique<T>();
    object->setAttribute(attributes, count);
    return script.yields ? std::move(object) : nullptr;
}

/// Belongs into no list.
struct Bare final : Object {
    CK_OBJECT_CLASS getClass() override { return CKO_VENDOR_DEFINED; }
};

struct FakeToken : Token {
    MechanismList mechanisms;
    explicit FakeToken(PCSCSlot* reader = nullptr) : Token(reader) {}
    CK_TOKEN_INFO getInfo() override { return m_tokenInfo.flags = script.tokenFlags, m_tokenInfo; }
    MechanismList* getMechanismList() override { return &mechanisms; }
    void InitPIN(const Blob&) override { script.call("InitPIN"); }
    void SetPIN(const Blob&, const Blob&) override { script.call("SetPIN"); }
    void SetSOPIN(const Blob&, const Blob&) override { script.call("SetSOPIN"); }
    std::unique_ptr<Object> createPublicKey(A, N) override { return nullptr; }
    std::unique_ptr<Object> createPrivateKey(A, N) override { return nullptr; }
    std::unique_ptr<Object> createCertificate(A, N) override { return std::make_unique<Bare>(); }
    std::unique_ptr<Object> createData(A a, N n) override { return makeObject<Data>(a, n); }
    std::unique_ptr<Object> createSecretKey(A a, N n) override { return makeObject<FakeSecretKey>(a, n); }
    std::unique_ptr<Object> copyObject(Object*, A, N) override { return makeObject<Data>(nullptr, 0); }
    std::unique_ptr<Mechanism> createMechanismDigest(M) override { return make("digest"); }
    std::unique_ptr<MechanismKeygen> createMechanismGenerateKeyPair(M) override { return make("pair"); }
    std::unique_ptr<MechanismKeygen> createMechanismGenerateKey(M) override { return make("key"); }
    void seedRandom(B, N) override {}
    void generateRandom(B, N) override {}
    bool isTokenHandleValid(long&) override { return true; }
    void VerifyPIN(const Blob&) override {}
    void VerifySOPIN(const Blob&) override {}
};

struct FakeSlot : Slot {
    FakeSlot() : Slot(nullptr) {}
    bool isTokenPresent() override { return script.cardPresent(); }
    std::unique_ptr<Token> createToken() override { return std::make_unique<FakeToken>(); }
    CK_RV InitToken(B, N, B) override { return CKR_FUNCTION_NOT_SUPPORTED; }
    const std::string& GetName() const override { return script.called; }
};

} // namespace PKCS11
