/// A slot with a token, keys and operations that do what the script says.
#pragma once

#include "pkcs11/core/Data.h"
#include "pkcs11/core/Mechanism.h"
#include "pkcs11/core/MechanismList.h"
#include "pkcs11/core/PrivateKey.h"
#include "pkcs11/core/PublicKey.h"
#include "pkcs11/core/SecretKey.h"
#include "pkcs11/pcsc/Slot.h"
#include "pkcs11/token/Hex.h"
#include "pkcs11/token/Token.h"
#include "tests/support/Failure.h"

#include <algorithm>
#include <functional>
#include <vector>

namespace PKCS11 {

struct Script {
    CK_RV fail = CKR_OK;                                // what every step, factory and token call throws
    bool failsInside = false;                           // only the one of the method that is called
    enum { nothing, noSteps, parts, all } yields = all; // the operations of the factories
    CK_FLAGS tokenFlags = 0;
    CK_ULONG produced = 3; // length of an output
    std::string method;    // that is called; "it" in what follows
    std::string called;    // steps, factories and token calls, with the lengths that they were given
    std::function<bool()> cardPresent = [] { return true; };
    void call(const std::string& name, const std::vector<CK_ULONG>& lengths = {})
    {
        called += " " + (name == method ? "it" : name);
        for (const CK_ULONG length : lengths)
            called += " " + std::to_string(length);
        if (fail == CKR_HOST_MEMORY && name == method)
            throw std::bad_alloc();
        if (fail != CKR_OK && (!failsInside || name == method))
            throw PKCS11Exception(fail);
    }
};
inline Script script;

using A = CK_ATTRIBUTE*;
using B = CK_BYTE*;
using I = MechanismInfo*;
using M = CK_MECHANISM*;
using N = CK_ULONG;

/// The output is the input with its bits inverted.
inline void invert(const char* step, B in, N n, B out, N* outLen)
{
    script.call(step, {n, *outLen});
    *outLen = script.produced;
    for (N i = 0; out != nullptr && i < std::min<N>(n, 4); ++i)
        out[i] = static_cast<CK_BYTE>(~in[i]);
}

std::unique_ptr<Mechanism> make(const std::string& factory);
std::unique_ptr<MechanismKeygen> makeKeygen(const char* factory);

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

/// Knows every step.
struct FakeOperation : MechanismKeygen {
    FakeOperation() : MechanismKeygen(CKM_RSA_PKCS) {}
    void sign(B in, N n, B out, N* len) override { invert("sign", in, n, out, len); }
    void signUpdate(B, N n) override { script.call("signUpdate", {n}); }
    void signFinal(B, N* n) override { script.call("signFinal", {*n}); }
    void verify(B, N n, B, N m) override { script.call("verify", {n, m}); }
    void verifyUpdate(B, N n) override { script.call("verifyUpdate", {n}); }
    void verifyFinal(B, N n) override { script.call("verifyFinal", {n}); }
    void verifyRecover(B out, N* len, B in, N n) override { invert("verifyRecover", in, n, out, len); }
    void encrypt(B in, N n, B out, N* len) override { invert("encrypt", in, n, out, len); }
    void encryptUpdate(B, N n, B, N* m) override { script.call("encryptUpdate", {n, *m}); }
    void encryptFinal(B, N* n) override { script.call("encryptFinal", {*n}); }
    void decrypt(B in, N n, B out, N* len) override { invert("decrypt", in, n, out, len); }
    void decryptUpdate(B, N n, B, N* m) override { script.call("decryptUpdate", {n, *m}); }
    void decryptFinal(B, N* n) override { script.call("decryptFinal", {*n}); }
    void digestInit() override { script.call("digestInit"); }
    void digest(B in, N n, B out, N* len) override { invert("digest", in, n, out, len); }
    void digestUpdate(B, N n) override { script.call("digestUpdate", {n}); }
    void digestFinal(B, N* n) override { script.call("digestFinal", {*n}); }
    void deriveKey(M, A, N n, Key** key) override
    {
        script.call("deriveKey", {n});
        *key = std::make_unique<FakeSecretKey>().release();
    }
    void generateKey(M, A, N n, SecretKey** key) override
    {
        script.call("generateKey", {n});
        if (script.produced != 0)
            *key = std::make_unique<FakeSecretKey>().release();
    }
    void generateKeyPair(M, A, N n, A, N m, PublicKey** publicKey, PrivateKey** privateKey) override
    {
        script.call("generateKeyPair", {n, m});
        *privateKey = std::make_unique<FakePrivateKey>().release();
        if (script.produced != 0)
            *publicKey = std::make_unique<FakePublicKey>().release();
    }
};
/// Knows parts only. Nothing is asked of the first ones.
struct SignParts final : MechanismSign {
    void signUpdate(B, N n) override { script.call("signUpdate", {n}); }
    void signFinal(B, N* n) override { script.call("signFinal", {*n}); }
};
struct VerifyParts final : MechanismVerify {
    void verifyUpdate(B, N n) override { script.call("verifyUpdate", {n}); }
    void verifyFinal(B, N n) override { script.call("verifyFinal", {n}); }
    void verifyRecover(B, N*, B, N) override {}
};
struct EncryptParts final : MechanismEncrypt {
    void encryptUpdate(B, N n, B out, N*) override { script.call("encryptUpdate", {n, N(out != nullptr)}); }
    void encryptFinal(B, N* n) override { script.call("encryptFinal", {*n}); }
};
struct DecryptParts final : MechanismDecrypt {
    void decryptUpdate(B, N n, B out, N*) override { script.call("decryptUpdate", {n, N(out != nullptr)}); }
    void decryptFinal(B, N* n) override { script.call("decryptFinal", {*n}); }
};

inline std::unique_ptr<MechanismKeygen> makeKeygen(const char* factory)
{
    script.call(factory);
    if (script.yields == Script::noSteps)
        return std::make_unique<MechanismKeygen>(CKM_DES_KEY_GEN);
    return script.yields == Script::all ? std::make_unique<FakeOperation>() : nullptr;
}
inline std::unique_ptr<Mechanism> make(const std::string& factory)
{
    if (script.yields != Script::parts)
        return makeKeygen(factory.c_str());
    if (factory == "sign")
        return std::make_unique<SignParts>();
    if (factory == "verify")
        return std::make_unique<VerifyParts>();
    if (factory == "encrypt")
        return std::make_unique<EncryptParts>();
    return std::make_unique<DecryptParts>();
}

template <class T>
std::unique_ptr<Object> makeObject(A attributes, N count)
{
    script.call("object");
    auto object = std::make_unique<T>();
    object->setAttribute(attributes, count);
    return script.yields != Script::nothing ? std::move(object) : nullptr;
}

struct FakeData final : Data {
    void Delete() override { script.call("Delete"); }
};
/// Belongs into no list.
struct Bare final : Object {
    CK_OBJECT_CLASS getClass() override { return CKO_VENDOR_DEFINED; }
};

struct FakeToken : Token {
    MechanismList mechanisms;
    explicit FakeToken(PCSCSlot* reader = nullptr) : Token(reader) {}
    CK_TOKEN_INFO getInfo() override { return m_tokenInfo.flags = script.tokenFlags, m_tokenInfo; }
    MechanismList* getMechanismList() override { return &mechanisms; }
    void InitPIN(const Blob& pin) override { script.call("InitPIN", {N(pin.size())}); }
    void SetPIN(const Blob& from, const Blob& to) override
    {
        script.call("SetPIN", {N(from.size()), N(to.size())});
    }
    void SetSOPIN(const Blob& from, const Blob& to) override
    {
        script.call("SetSOPIN", {N(from.size()), N(to.size())});
    }
    std::unique_ptr<Object> createPublicKey(A, N) override { return nullptr; }
    std::unique_ptr<Object> createPrivateKey(A, N) override { return nullptr; }
    std::unique_ptr<Object> createCertificate(A, N) override { return makeObject<Bare>(nullptr, 0); }
    std::unique_ptr<Object> createData(A a, N n) override { return makeObject<FakeData>(a, n); }
    std::unique_ptr<Object> createSecretKey(A a, N n) override { return makeObject<FakeSecretKey>(a, n); }
    std::unique_ptr<Object> copyObject(Object*, A, N) override { return makeObject<Data>(nullptr, 0); }
    std::unique_ptr<Mechanism> createMechanismDigest(M) override { return make("digest operation"); }
    std::unique_ptr<MechanismKeygen> createMechanismGenerateKeyPair(M) override { return makeKeygen("pair"); }
    std::unique_ptr<MechanismKeygen> createMechanismGenerateKey(M) override { return makeKeygen("key"); }
    void seedRandom(B, N n) override { script.call("seedRandom", {n}); }
    void generateRandom(B, N n) override { script.call("generateRandom", {n}); }
    bool isTokenHandleValid(long&) override { return true; }
    void VerifyPIN(const Blob& pin) override { script.call("VerifyPIN", {N(pin.size())}); }
    void VerifySOPIN(const Blob& pin) override { script.call("VerifySOPIN", {N(pin.size())}); }
};

struct FakeSlot : Slot {
    FakeSlot() : Slot(nullptr) {}
    bool isTokenPresent() override { return script.cardPresent(); }
    std::unique_ptr<Token> createToken() override { return std::make_unique<FakeToken>(); }
    CK_RV InitToken(B, N, B) override { return CKR_FUNCTION_NOT_SUPPORTED; }
    const std::string& GetName() const override { return script.called; }
};

} // namespace PKCS11
