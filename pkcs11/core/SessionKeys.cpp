// Key look-ups, and the calls that make or wrap keys.
#include "pkcs11/core/Session.h"

#include "pkcs11/PKCS11Exception.h"
#include "pkcs11/core/Arguments.h"
#include "pkcs11/core/MechanismList.h"
#include "pkcs11/core/PrivateKey.h"
#include "pkcs11/core/PublicKey.h"
#include "pkcs11/core/SecretKey.h"
#include "pkcs11/core/Template.h"
#include "pkcs11/token/Token.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace PKCS11 {

namespace {

/// Room for a wrapped or unwrapped key, in bytes.
constexpr CK_ULONG kWrapBuffer = 1024;

/// What the operation writes, within that room; the memory is wiped with the Blob.
template <class Run>
Blob inWrapBuffer(Run run)
{
    Blob buffer(static_cast<int>(kWrapBuffer), 0);
    CK_ULONG length = kWrapBuffer;
    run(buffer.data(), &length);
    buffer.resize(static_cast<int>(std::min(length, kWrapBuffer)));
    return buffer;
}

} // namespace

// --- Look-ups ------------------------------------------------------------------------------------

template <class KeyClass>
KeyClass* Session::findKey(CK_OBJECT_HANDLE hKey, const char* where)
{
    auto* key = dynamic_cast<KeyClass*>(getObject(hKey));
    if (key != nullptr && key->getPrivate() != CK_FALSE && !canAccessPrivate())
        throw PKCS11Exception(CKR_USER_NOT_LOGGED_IN, "login required", where);
    return key;
}

PrivateKey* Session::getPrivateKey(CK_OBJECT_HANDLE hKey)
{
    return findKey<PrivateKey>(hKey, "Session::getPrivateKey");
}

PublicKey* Session::getPublicKey(CK_OBJECT_HANDLE hKey)
{
    return findKey<PublicKey>(hKey, "Session::getPublicKey");
}

SecretKey* Session::getSecretKey(CK_OBJECT_HANDLE hKey)
{
    return findKey<SecretKey>(hKey, "Session::getSecretKey");
}

Key* Session::getKey(CK_OBJECT_HANDLE hKey)
{
    constexpr char kWhere[] = "Session::getKey";
    Key* key = findKey<Key>(hKey, kWhere);
    if (key == nullptr)
        throw PKCS11Exception(CKR_KEY_HANDLE_INVALID, "", kWhere);
    return key;
}

// --- Keys made on the card -----------------------------------------------------------------------

void Session::requireKeyGeneration(const char* where)
{
    getToken();
    requireReadWrite(where);
    if (!canAccessPrivate())
        throw PKCS11Exception(CKR_USER_NOT_LOGGED_IN, "", where);
    requireNoOperation(where);
}

template <class Operation, class Generate>
void Session::runKeyGeneration(std::unique_ptr<Operation> operation, const char* where, Generate generate)
{
    Operation* generator = operation.get();
    attachActive(std::move(operation), nullptr, where);
    try {
        generate(*generator);
    } catch (...) {
        endOperation();
        throw;
    }
    endOperation();
}

void Session::generateKey(CK_MECHANISM* pMechanism, CK_ATTRIBUTE* attributes, CK_ULONG count,
                          CK_OBJECT_HANDLE* phKey)
{
    constexpr char kWhere[] = "Session::generateKey";
    requireKeyGeneration(kWhere);
    requirePointer(pMechanism);
    requirePointer(phKey);
    checkTemplate(attributes, count);
    std::unique_ptr<SecretKey> key;
    runKeyGeneration(getToken()->createMechanismGenerateKey(pMechanism), kWhere,
                     [&](MechanismKeygen& generator) {
                         SecretKey* made = nullptr;
                         generator.generateKey(pMechanism, attributes, count, &made);
                         key.reset(made);
                     });
    *phKey = insertObject(std::move(key));
}

void Session::generateKeyPair(CK_MECHANISM* pMechanism, CK_ATTRIBUTE* publicAttributes, CK_ULONG publicCount,
                              CK_ATTRIBUTE* privateAttributes, CK_ULONG privateCount,
                              CK_OBJECT_HANDLE* phPublic, CK_OBJECT_HANDLE* phPrivate)
{
    constexpr char kWhere[] = "Session::generateKeyPair";
    requireKeyGeneration(kWhere);
    requirePointer(pMechanism);
    requirePointer(phPublic);
    requirePointer(phPrivate);
    checkTemplate(publicAttributes, publicCount);
    checkTemplate(privateAttributes, privateCount);
    std::unique_ptr<PublicKey> publicKey;
    std::unique_ptr<PrivateKey> privateKey;
    runKeyGeneration(
        getToken()->createMechanismGenerateKeyPair(pMechanism), kWhere, [&](MechanismKeygen& generator) {
            PublicKey* madePublic = nullptr;
            PrivateKey* madePrivate = nullptr;
            generator.generateKeyPair(pMechanism, publicAttributes, publicCount, privateAttributes,
                                      privateCount, &madePublic, &madePrivate);
            publicKey.reset(madePublic);
            privateKey.reset(madePrivate);
        });
    // Half a pair is not kept.
    if (publicKey == nullptr || privateKey == nullptr)
        throw PKCS11Exception(CKR_OBJECT_HANDLE_INVALID);
    *phPrivate = insertObject(std::move(privateKey));
    *phPublic = insertObject(std::move(publicKey));
}

void Session::deriveKey(CK_MECHANISM* pMechanism, CK_OBJECT_HANDLE hBaseKey, CK_ATTRIBUTE* attributes,
                        CK_ULONG count, CK_OBJECT_HANDLE* phKey)
{
    constexpr char kWhere[] = "Session::deriveKey";
    Token* token = getToken();
    requireNoOperation(""); // without the method's name, deliberately
    requirePointer(phKey);
    checkTemplate(attributes, count);
    cleanMechanism();
    MechanismInfo* info = token->getMechanismList()->getMechanism(pMechanism);
    if (!info->isDerive())
        throw PKCS11Exception(CKR_MECHANISM_INVALID, "", kWhere);
    Key* base = getKey(hBaseKey);
    if (base->getDerive() == CK_FALSE)
        throw PKCS11Exception(CKR_KEY_FUNCTION_NOT_PERMITTED, "", kWhere);
    // The operation stays active after a derivation, deliberately.
    attachActive(base->createDeriveMechanism(pMechanism, info), base, kWhere);
    Key* derived = nullptr;
    m_operation->deriveKey(pMechanism, attributes, count, &derived);
    *phKey = insertObject(std::unique_ptr<Object>(derived));
}

// --- Wrapping ------------------------------------------------------------------------------------

void Session::WrapKey(CK_MECHANISM* pMechanism, CK_OBJECT_HANDLE hWrappingKey, CK_OBJECT_HANDLE hKey,
                      CK_BYTE* pWrapped, CK_ULONG* pulWrappedLen)
{
    constexpr char kWhere[] = "Session::WrapKey";
    getObject(hWrappingKey); // only has to exist here
    Object* object = getObject(hKey);
    auto* key = object->getClass() == CKO_SECRET_KEY ? dynamic_cast<SecretKey*>(object) : nullptr;
    if (key == nullptr)
        throw PKCS11Exception(CKR_KEY_NOT_WRAPPABLE, "", kWhere);
    Blob value = key->getValue();
    if (key->getValueLen() == 0 || value.empty())
        throw PKCS11Exception(CKR_KEY_SIZE_RANGE, "", kWhere);
    // A caller who wants neither gets neither; an output alone has no room that could be known.
    if (pWrapped != nullptr)
        requirePointer(pulWrappedLen);

    encryptInit(pMechanism, hWrappingKey);
    const Blob wrapped = inWrapBuffer([&](CK_BYTE* out, CK_ULONG* outLen) {
        encrypt(value.data(), static_cast<CK_ULONG>(value.size()), out, outLen);
    });
    if (pulWrappedLen == nullptr)
        return;
    const auto length = static_cast<CK_ULONG>(wrapped.size());
    const CK_ULONG room = std::exchange(*pulWrappedLen, length);
    if (pWrapped == nullptr)
        return;
    if (room < length)
        throw PKCS11Exception(CKR_BUFFER_TOO_SMALL, "", kWhere);
    std::copy(wrapped.begin(), wrapped.end(), pWrapped);
}

void Session::UnwrapKey(CK_MECHANISM* pMechanism, CK_OBJECT_HANDLE hUnwrappingKey, CK_BYTE* pWrapped,
                        CK_ULONG ulWrappedLen, CK_ATTRIBUTE* attributes, CK_ULONG count,
                        CK_OBJECT_HANDLE* phKey)
{
    constexpr char kWhere[] = "Session::UnwrapKey";
    getObject(hUnwrappingKey);
    if (pWrapped == nullptr)
        throw PKCS11Exception(CKR_WRAPPED_KEY_INVALID, "", kWhere);
    if (ulWrappedLen == 0)
        throw PKCS11Exception(CKR_WRAPPED_KEY_LEN_RANGE, "", kWhere);
    requirePointer(phKey);
    checkTemplate(attributes, count);

    decryptInit(pMechanism, hUnwrappingKey);
    Blob value =
        inWrapBuffer([&](CK_BYTE* out, CK_ULONG* outLen) { decrypt(pWrapped, ulWrappedLen, out, outLen); });
    if (value.empty())
        throw PKCS11Exception(CKR_WRAPPED_KEY_INVALID, "", kWhere);
    if (findAttribute(CKA_CLASS, attributes, count) == nullptr)
        throw PKCS11Exception(CKR_TEMPLATE_INCOMPLETE, "", kWhere);
    CK_OBJECT_CLASS objectClass = CKO_VENDOR_DEFINED;
    if (!findObjectClass(attributes, count, objectClass) || objectClass != CKO_SECRET_KEY)
        throw PKCS11Exception(CKR_FUNCTION_NOT_SUPPORTED, "", kWhere);
    std::vector<CK_ATTRIBUTE> complete(attributes, attributes + count);
    complete.push_back({CKA_VALUE, value.data(), static_cast<CK_ULONG>(value.size())});
    createObject(complete.data(), static_cast<CK_ULONG>(complete.size()), phKey);
}

} // namespace PKCS11
