/// The start and the steps of the operations that work with a key, and of the digest.
#include "pkcs11/core/Session.h"

#include "pkcs11/Edition.h"
#include "pkcs11/PKCS11Exception.h"
#include "pkcs11/core/Arguments.h"
#include "pkcs11/core/MechanismList.h"
#include "pkcs11/core/PrivateKey.h"
#include "pkcs11/core/PublicKey.h"
#include "pkcs11/core/SecretKey.h"
#include "pkcs11/token/Token.h"

#include <type_traits>
#include <utility>

namespace PKCS11 {

// --- Rows -------------------------------------------------------------------------------------------------

/// What one kind of key offers for an operation.
template <class KeyClass>
struct KeyUse {
    CK_BBOOL (KeyClass::*usage)();
    std::unique_ptr<Mechanism> (*create)(KeyClass&, CK_MECHANISM*, MechanismInfo*);
};

/// The start of an operation with an asymmetric key of the class or with a secret key.
template <class KeyClass>
struct OperationStart {
    const char* where;
    const char* whereNoKey;
    const char* whatNoCapability;
    bool (MechanismInfo::*capability)() const;
    KeyUse<KeyClass> key;
    /// Null members where no secret key will do.
    KeyUse<SecretKey> secretKey;
};

enum class Success { ends, endsUnlessQuery, keeps };
enum class Failure { ends, endsUnlessWrongStep, keeps };

/// One step of an operation, and what becomes of the operation after it. A length query is a call with a null
/// output; the wrong step for the operation is CKR_MECHANISM_INVALID.
struct OperationStep {
    const char* where;
    Success success;
    Failure failure;
};

namespace {

template <class KeyClass, std::unique_ptr<Mechanism> (KeyClass::*factory)(CK_MECHANISM*, MechanismInfo*)>
std::unique_ptr<Mechanism> create(KeyClass& key, CK_MECHANISM* mechanism, MechanismInfo* info)
{
    return (key.*factory)(mechanism, info);
}

std::unique_ptr<Mechanism> createSign(PrivateKey& key, CK_MECHANISM* mechanism, MechanismInfo* info)
{
    return Edition::current().createSignMechanism(key, mechanism, info);
}

constexpr OperationStart<PrivateKey> kSignInit = {
    "Session::signInit",
    "Session::signInit",
    "",
    &MechanismInfo::isSign,
    {&PrivateKey::getSign, &createSign},
    {&SecretKey::getSign, &create<SecretKey, &SecretKey::createSignMechanism>},
};
constexpr OperationStart<PublicKey> kVerifyInit = {
    "Session::verifyInit",
    "Session::verifyInit",
    "",
    &MechanismInfo::isVerify,
    {&PublicKey::getVerify, &create<PublicKey, &PublicKey::createVerifyMechanism>},
    {&SecretKey::getVerify, &create<SecretKey, &SecretKey::createVerifyMechanism>},
};
constexpr OperationStart<PublicKey> kEncryptInit = {
    "Session::encryptInit",
    "Session::verifyInit", // names the other method, deliberately
    "no encrypt flag",
    &MechanismInfo::isEncrypt,
    {&PublicKey::getEncrypt, &create<PublicKey, &PublicKey::createEncryptMechanism>},
    {&SecretKey::getEncrypt, &create<SecretKey, &SecretKey::createEncryptMechanism>},
};
constexpr OperationStart<PrivateKey> kDecryptInit = {
    "Session::decryptInit",
    "Session::decryptInit",
    "",
    &MechanismInfo::isDecrypt,
    {&PrivateKey::getDecrypt, &create<PrivateKey, &PrivateKey::createDecryptMechanism>},
    {&SecretKey::getDecrypt, &create<SecretKey, &SecretKey::createDecryptMechanism>},
};
constexpr OperationStart<PublicKey> kVerifyRecoverInit = {
    "Session::verifyRecoverInit",
    "Session::verifyRecoverInit",
    "",
    &MechanismInfo::isVerifyRecover,
    {&PublicKey::getVerifyRecovery, &create<PublicKey, &PublicKey::createVerifyRecoveryMechanism>},
    {nullptr, nullptr},
};

constexpr OperationStep kSign = {"Session::sign", Success::endsUnlessQuery, Failure::ends};
constexpr OperationStep kSignUpdate = {"Session::signUpdate", Success::keeps, Failure::keeps};
constexpr OperationStep kSignFinal = {"Session::signFinal", Success::endsUnlessQuery, Failure::ends};
constexpr OperationStep kVerify = {"Session::verify", Success::ends, Failure::endsUnlessWrongStep};
constexpr OperationStep kVerifyUpdate = {"Session::verifyUpdate", Success::keeps, Failure::keeps};
constexpr OperationStep kVerifyFinal = {"Session::verifyFinal", Success::endsUnlessQuery,
                                        Failure::endsUnlessWrongStep};
constexpr OperationStep kVerifyRecover = {"Session::verifyRecover", Success::endsUnlessQuery, Failure::ends};
constexpr OperationStep kEncrypt = {"Session::encrypt", Success::endsUnlessQuery,
                                    Failure::endsUnlessWrongStep};
constexpr OperationStep kEncryptUpdate = {"Session::encryptUpdate", Success::keeps,
                                          Failure::endsUnlessWrongStep};
// Names the other method, deliberately.
constexpr OperationStep kEncryptFinal = {"Session::encryptUpdate", Success::endsUnlessQuery,
                                         Failure::endsUnlessWrongStep};
constexpr OperationStep kDecrypt = {"Session::decrypt", Success::endsUnlessQuery,
                                    Failure::endsUnlessWrongStep};
constexpr OperationStep kDecryptUpdate = {"Session::decryptUpdate", Success::keeps,
                                          Failure::endsUnlessWrongStep};
constexpr OperationStep kDecryptFinal = {"Session::decryptFinal", Success::endsUnlessQuery,
                                         Failure::endsUnlessWrongStep};
constexpr OperationStep kDigest = {"Session::digest", Success::endsUnlessQuery, Failure::endsUnlessWrongStep};
constexpr OperationStep kDigestUpdate = {"Session::digestUpdate", Success::keeps,
                                         Failure::endsUnlessWrongStep};
constexpr OperationStep kDigestFinal = {"Session::digestFinal", Success::endsUnlessQuery,
                                        Failure::endsUnlessWrongStep};

/// Checks the buffers of a step: inputs with their length, outputs with their length pointer.
void checkBuffers(const CK_BYTE* input, CK_ULONG length)
{
    requireBuffer(input, length);
}

void checkBuffers(const CK_BYTE* /*output*/, const CK_ULONG* length)
{
    requirePointer(length);
}

template <class FirstLength, class SecondLength>
void checkBuffers(const CK_BYTE* first, FirstLength firstLength, const CK_BYTE* second,
                  SecondLength secondLength)
{
    checkBuffers(first, firstLength);
    checkBuffers(second, secondLength);
}

} // namespace

// --- Shared steps -----------------------------------------------------------------------------------------

void Session::requireNoOperation(const char* where) const
{
    if (isOperationActive())
        throw PKCS11Exception(CKR_OPERATION_ACTIVE, "", where);
}

void Session::attach(std::unique_ptr<Mechanism> operation, const Object* key, const char* where)
{
    if (operation == nullptr)
        throw PKCS11Exception(CKR_FUNCTION_NOT_SUPPORTED, "", where);
    m_operation = std::move(operation);
    m_operationObject = key;
    m_operation->setActive(true);
}

void Session::endOperation()
{
    if (m_operation != nullptr)
        m_operation->setActive(false);
}

bool Session::ValidMechanism(CK_KEY_TYPE keyType, const CK_MECHANISM* pMechanism)
{
    const CK_MECHANISM_TYPE type = pMechanism->mechanism;
    switch (keyType) {
    case CKK_RSA:
        // Ends at CKM_SHA1_RSA_PKCS_PSS, deliberately: the mechanisms with SHA-2 are refused.
        return type >= CKM_RSA_PKCS && type <= CKM_SHA1_RSA_PKCS_PSS && type != CKM_RSA_X9_31_KEY_PAIR_GEN;
    case CKK_EC:
        return type == CKM_ECDSA || type == CKM_ECDSA_SHA1;
    default:
        return true;
    }
}

template <class KeyClass>
void Session::startOperation(const OperationStart<KeyClass>& start, CK_MECHANISM* pMechanism,
                             CK_OBJECT_HANDLE hKey)
{
    Token* token = getToken();
    requireNoOperation(start.where);
    cleanMechanism();
    MechanismInfo* info = token->getMechanismList()->getMechanism(pMechanism);
    if (!(info->*start.capability)())
        throw PKCS11Exception(CKR_MECHANISM_INVALID, start.whatNoCapability, start.where);

    const auto begin = [&](auto& key, const auto& use, bool validMechanism) {
        if (!validMechanism || (key.*use.usage)() == CK_FALSE)
            throw PKCS11Exception(CKR_KEY_FUNCTION_NOT_PERMITTED, "", start.where);
        attach(use.create(key, pMechanism, info), &key, start.where);
    };
    KeyClass* key = nullptr;
    if constexpr (std::is_same_v<KeyClass, PrivateKey>)
        key = getPrivateKey(hKey);
    else
        key = getPublicKey(hKey);
    if (key != nullptr)
        return begin(*key, start.key, ValidMechanism(key->getKeyType(), pMechanism));

    SecretKey* secretKey = start.secretKey.create != nullptr ? getSecretKey(hKey) : nullptr;
    if (secretKey == nullptr)
        throw PKCS11Exception(CKR_KEY_HANDLE_INVALID, "", start.whereNoKey);
    begin(*secretKey, start.secretKey, true);
}

template <class... Arguments>
void Session::runStep(const OperationStep& row, const CK_BYTE* output, void (Mechanism::*step)(Arguments...),
                      Arguments... arguments)
{
    try {
        getToken();
        if (!isOperationActive())
            throw PKCS11Exception(CKR_OPERATION_NOT_INITIALIZED, "", row.where);
        checkBuffers(arguments...);
        (m_operation.get()->*step)(arguments...);
    } catch (const PKCS11Exception& ex) {
        const bool wrongStep = ex.value() == CKR_MECHANISM_INVALID;
        if (row.failure == Failure::ends || (row.failure == Failure::endsUnlessWrongStep && !wrongStep))
            endOperation();
        throw;
    }
    if (row.success == Success::ends || (row.success == Success::endsUnlessQuery && output != nullptr))
        endOperation();
}

// --- Start ------------------------------------------------------------------------------------------------

void Session::signInit(CK_MECHANISM* pMechanism, CK_OBJECT_HANDLE hKey)
{
    startOperation(kSignInit, pMechanism, hKey);
}

void Session::verifyInit(CK_MECHANISM* pMechanism, CK_OBJECT_HANDLE hKey)
{
    startOperation(kVerifyInit, pMechanism, hKey);
}

void Session::verifyRecoverInit(CK_MECHANISM* pMechanism, CK_OBJECT_HANDLE hKey)
{
    startOperation(kVerifyRecoverInit, pMechanism, hKey);
}

void Session::encryptInit(CK_MECHANISM* pMechanism, CK_OBJECT_HANDLE hKey)
{
    startOperation(kEncryptInit, pMechanism, hKey);
}

void Session::decryptInit(CK_MECHANISM* pMechanism, CK_OBJECT_HANDLE hKey)
{
    startOperation(kDecryptInit, pMechanism, hKey);
}

void Session::digestInit(CK_MECHANISM* pMechanism)
{
    constexpr const char* kWhere = "Session::digestInit";
    Token* token = getToken();
    requireNoOperation(kWhere);
    requirePointer(pMechanism);
    attach(token->createMechanismDigest(pMechanism), nullptr, kWhere);
    endOperation(); // active only once its own start has succeeded
    m_operation->digestInit();
    m_operation->setActive(true);
}

// --- Steps ------------------------------------------------------------------------------------------------

void Session::sign(CK_BYTE* pData, CK_ULONG ulDataLen, CK_BYTE* pSignature, CK_ULONG* pulSignatureLen)
{
    runStep(kSign, pSignature, &Mechanism::sign, pData, ulDataLen, pSignature, pulSignatureLen);
}

void Session::signUpdate(CK_BYTE* pPart, CK_ULONG ulPartLen)
{
    runStep(kSignUpdate, nullptr, &Mechanism::signUpdate, pPart, ulPartLen);
}

void Session::signFinal(CK_BYTE* pSignature, CK_ULONG* pulSignatureLen)
{
    runStep(kSignFinal, pSignature, &Mechanism::signFinal, pSignature, pulSignatureLen);
}

void Session::verify(CK_BYTE* pData, CK_ULONG ulDataLen, CK_BYTE* pSignature, CK_ULONG ulSignatureLen)
{
    runStep(kVerify, nullptr, &Mechanism::verify, pData, ulDataLen, pSignature, ulSignatureLen);
}

void Session::verifyUpdate(CK_BYTE* pPart, CK_ULONG ulPartLen)
{
    runStep(kVerifyUpdate, nullptr, &Mechanism::verifyUpdate, pPart, ulPartLen);
}

void Session::verifyFinal(CK_BYTE* pSignature, CK_ULONG ulSignatureLen)
{
    runStep(kVerifyFinal, pSignature, &Mechanism::verifyFinal, pSignature, ulSignatureLen);
}

void Session::verifyRecover(CK_BYTE* pSignature, CK_ULONG ulSignatureLen, CK_BYTE* pData,
                            CK_ULONG* pulDataLen)
{
    runStep(kVerifyRecover, pData, &Mechanism::verifyRecover, pData, pulDataLen, pSignature, ulSignatureLen);
}

void Session::encrypt(CK_BYTE* pData, CK_ULONG ulDataLen, CK_BYTE* pEncrypted, CK_ULONG* pulEncryptedLen)
{
    runStep(kEncrypt, pEncrypted, &Mechanism::encrypt, pData, ulDataLen, pEncrypted, pulEncryptedLen);
}

void Session::encryptUpdate(CK_BYTE* pPart, CK_ULONG ulPartLen, CK_BYTE* pEncrypted,
                            CK_ULONG* pulEncryptedLen)
{
    runStep(kEncryptUpdate, pEncrypted, &Mechanism::encryptUpdate, pPart, ulPartLen, pEncrypted,
            pulEncryptedLen);
}

void Session::encryptFinal(CK_BYTE* pEncrypted, CK_ULONG* pulEncryptedLen)
{
    runStep(kEncryptFinal, pEncrypted, &Mechanism::encryptFinal, pEncrypted, pulEncryptedLen);
}

void Session::decrypt(CK_BYTE* pEncrypted, CK_ULONG ulEncryptedLen, CK_BYTE* pData, CK_ULONG* pulDataLen)
{
    runStep(kDecrypt, pData, &Mechanism::decrypt, pEncrypted, ulEncryptedLen, pData, pulDataLen);
}

void Session::decryptUpdate(CK_BYTE* pEncrypted, CK_ULONG ulEncryptedLen, CK_BYTE* pPart,
                            CK_ULONG* pulPartLen)
{
    runStep(kDecryptUpdate, pPart, &Mechanism::decryptUpdate, pEncrypted, ulEncryptedLen, pPart, pulPartLen);
}

void Session::decryptFinal(CK_BYTE* pPart, CK_ULONG* pulPartLen)
{
    runStep(kDecryptFinal, pPart, &Mechanism::decryptFinal, pPart, pulPartLen);
}

void Session::digest(CK_BYTE* pData, CK_ULONG ulDataLen, CK_BYTE* pDigest, CK_ULONG* pulDigestLen)
{
    runStep(kDigest, pDigest, &Mechanism::digest, pData, ulDataLen, pDigest, pulDigestLen);
}

void Session::digestUpdate(CK_BYTE* pPart, CK_ULONG ulPartLen)
{
    runStep(kDigestUpdate, nullptr, &Mechanism::digestUpdate, pPart, ulPartLen);
}

void Session::digestFinal(CK_BYTE* pDigest, CK_ULONG* pulDigestLen)
{
    runStep(kDigestFinal, pDigest, &Mechanism::digestFinal, pDigest, pulDigestLen);
}

} // namespace PKCS11
