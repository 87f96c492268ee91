// The start and the steps of the operations that work with a key, and of the digest.
#include "pkcs11/core/Session.h"

#include "pkcs11/Edition.h"
#include "pkcs11/PKCS11Exception.h"
#include "pkcs11/core/Arguments.h"
#include "pkcs11/core/MechanismList.h"
#include "pkcs11/core/PrivateKey.h"
#include "pkcs11/core/PublicKey.h"
#include "pkcs11/core/SecretKey.h"
#include "pkcs11/token/Token.h"

#include <utility>

namespace PKCS11 {

// --- Tables --------------------------------------------------------------------------------------

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

/// What becomes of the operation after a step that succeeded. A query is a step with a null output.
enum class Success { ends, endsUnlessQuery, keeps };
/// And after one that failed. The wrong step for the operation is CKR_MECHANISM_INVALID.
enum class Failure { ends, endsUnlessWrong, keeps };

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

// clang-format off
constexpr OperationStep kSign          {"Session::sign",          Success::endsUnlessQuery, Failure::ends};
constexpr OperationStep kSignUpdate    {"Session::signUpdate",    Success::keeps,           Failure::keeps};
constexpr OperationStep kSignFinal     {"Session::signFinal",     Success::endsUnlessQuery, Failure::ends};
constexpr OperationStep kVerify        {"Session::verify",        Success::ends,            Failure::endsUnlessWrong};
constexpr OperationStep kVerifyUpdate  {"Session::verifyUpdate",  Success::keeps,           Failure::keeps};
constexpr OperationStep kVerifyFinal   {"Session::verifyFinal",   Success::endsUnlessQuery, Failure::endsUnlessWrong};
constexpr OperationStep kVerifyRecover {"Session::verifyRecover", Success::endsUnlessQuery, Failure::ends};
constexpr OperationStep kEncrypt       {"Session::encrypt",       Success::endsUnlessQuery, Failure::endsUnlessWrong};
constexpr OperationStep kEncryptUpdate {"Session::encryptUpdate", Success::keeps,           Failure::endsUnlessWrong};
// The next names the other method, deliberately.
constexpr OperationStep kEncryptFinal  {"Session::encryptUpdate", Success::endsUnlessQuery, Failure::endsUnlessWrong};
constexpr OperationStep kDecrypt       {"Session::decrypt",       Success::endsUnlessQuery, Failure::endsUnlessWrong};
constexpr OperationStep kDecryptUpdate {"Session::decryptUpdate", Success::keeps,           Failure::endsUnlessWrong};
constexpr OperationStep kDecryptFinal  {"Session::decryptFinal",  Success::endsUnlessQuery, Failure::endsUnlessWrong};
constexpr OperationStep kDigest        {"Session::digest",        Success::endsUnlessQuery, Failure::endsUnlessWrong};
constexpr OperationStep kDigestUpdate  {"Session::digestUpdate",  Success::keeps,           Failure::endsUnlessWrong};
constexpr OperationStep kDigestFinal   {"Session::digestFinal",   Success::endsUnlessQuery, Failure::endsUnlessWrong};
// clang-format on

} // namespace

// --- Shared steps --------------------------------------------------------------------------------

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
}

void Session::attachActive(std::unique_ptr<Mechanism> operation, const Object* key, const char* where)
{
    attach(std::move(operation), key, where);
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
void Session::startOperation(const OperationStart<KeyClass>& start,
                             KeyClass* (Session::*lookUp)(CK_OBJECT_HANDLE), CK_MECHANISM* pMechanism,
                             CK_OBJECT_HANDLE hKey)
{
    Token* token = getToken();
    requireNoOperation(start.where);
    cleanMechanism();
    MechanismInfo* info = token->getMechanismList()->getMechanism(pMechanism);
    if (!(info->*start.capability)())
        throw PKCS11Exception(CKR_MECHANISM_INVALID, start.whatNoCapability, start.where);

    if (KeyClass* key = (this->*lookUp)(hKey)) {
        if (!ValidMechanism(key->getKeyType(), pMechanism) || (key->*start.key.usage)() == CK_FALSE)
            throw PKCS11Exception(CKR_KEY_FUNCTION_NOT_PERMITTED, "", start.where);
        return attachActive(start.key.create(*key, pMechanism, info), key, start.where);
    }
    SecretKey* key = start.secretKey.create != nullptr ? getSecretKey(hKey) : nullptr;
    if (key == nullptr)
        throw PKCS11Exception(CKR_KEY_HANDLE_INVALID, "", start.whereNoKey);
    if ((key->*start.secretKey.usage)() == CK_FALSE)
        throw PKCS11Exception(CKR_KEY_FUNCTION_NOT_PERMITTED, "", start.where);
    attachActive(start.secretKey.create(*key, pMechanism, info), key, start.where);
}

template <class Step>
void Session::runStep(const OperationStep& row, const CK_BYTE* asked, const Step& step)
{
    const auto fail = [&](bool isWrong) {
        if (row.failure == Failure::ends || (row.failure == Failure::endsUnlessWrong && !isWrong))
            endOperation();
    };
    try {
        getToken();
        if (!isOperationActive())
            throw PKCS11Exception(CKR_OPERATION_NOT_INITIALIZED, "", row.where);
        step(*m_operation);
    } catch (const PKCS11Exception& failure) {
        fail(failure.value() == CKR_MECHANISM_INVALID);
        throw;
    } catch (...) {
        fail(false);
        throw;
    }
    const bool isQuery = asked == nullptr;
    if (row.success == Success::ends || (row.success == Success::endsUnlessQuery && !isQuery))
        endOperation();
}

// Input, output, or both. A null input is one of no length; where an output's length goes is always told.

// Without an output a null input counts as a query, deliberately: a final step of verification goes on then.
void Session::runStep(const OperationStep& row, Input input, void (Mechanism::*step)(CK_BYTE*, CK_ULONG))
{
    runStep(row, input.bytes, [&](Mechanism& operation) {
        requireBuffer(input.bytes, input.length);
        (operation.*step)(input.bytes, input.length);
    });
}

void Session::runStep(const OperationStep& row, Output output, void (Mechanism::*step)(CK_BYTE*, CK_ULONG*))
{
    runStep(row, output.bytes, [&](Mechanism& operation) {
        requirePointer(output.length);
        (operation.*step)(output.bytes, output.length);
    });
}

void Session::runStep(const OperationStep& row, Input input, Output output,
                      void (Mechanism::*step)(CK_BYTE*, CK_ULONG, CK_BYTE*, CK_ULONG*))
{
    runStep(row, output.bytes, [&](Mechanism& operation) {
        requireBuffer(input.bytes, input.length);
        requirePointer(output.length);
        (operation.*step)(input.bytes, input.length, output.bytes, output.length);
    });
}

// --- Start ---------------------------------------------------------------------------------------

void Session::signInit(CK_MECHANISM* pMechanism, CK_OBJECT_HANDLE hKey)
{
    startOperation(kSignInit, &Session::getPrivateKey, pMechanism, hKey);
}

void Session::verifyInit(CK_MECHANISM* pMechanism, CK_OBJECT_HANDLE hKey)
{
    startOperation(kVerifyInit, &Session::getPublicKey, pMechanism, hKey);
}

void Session::verifyRecoverInit(CK_MECHANISM* pMechanism, CK_OBJECT_HANDLE hKey)
{
    startOperation(kVerifyRecoverInit, &Session::getPublicKey, pMechanism, hKey);
}

void Session::encryptInit(CK_MECHANISM* pMechanism, CK_OBJECT_HANDLE hKey)
{
    startOperation(kEncryptInit, &Session::getPublicKey, pMechanism, hKey);
}

void Session::decryptInit(CK_MECHANISM* pMechanism, CK_OBJECT_HANDLE hKey)
{
    startOperation(kDecryptInit, &Session::getPrivateKey, pMechanism, hKey);
}

void Session::digestInit(CK_MECHANISM* pMechanism)
{
    constexpr char kWhere[] = "Session::digestInit";
    Token* token = getToken();
    requireNoOperation(kWhere);
    requirePointer(pMechanism);
    attach(token->createMechanismDigest(pMechanism), nullptr, kWhere);
    // Active only once its own start has succeeded.
    m_operation->digestInit();
    m_operation->setActive(true);
}

// --- Steps ---------------------------------------------------------------------------------------

void Session::sign(CK_BYTE* pData, CK_ULONG ulDataLen, CK_BYTE* pSignature, CK_ULONG* pulSignatureLen)
{
    runStep(kSign, Input{pData, ulDataLen}, Output{pSignature, pulSignatureLen}, &Mechanism::sign);
}

void Session::signUpdate(CK_BYTE* pPart, CK_ULONG ulPartLen)
{
    runStep(kSignUpdate, Input{pPart, ulPartLen}, &Mechanism::signUpdate);
}

void Session::signFinal(CK_BYTE* pSignature, CK_ULONG* pulSignatureLen)
{
    runStep(kSignFinal, Output{pSignature, pulSignatureLen}, &Mechanism::signFinal);
}

void Session::verify(CK_BYTE* pData, CK_ULONG ulDataLen, CK_BYTE* pSignature, CK_ULONG ulSignatureLen)
{
    runStep(kVerify, pSignature, [&](Mechanism& operation) {
        requireBuffer(pData, ulDataLen);
        requireBuffer(pSignature, ulSignatureLen);
        operation.verify(pData, ulDataLen, pSignature, ulSignatureLen);
    });
}

void Session::verifyUpdate(CK_BYTE* pPart, CK_ULONG ulPartLen)
{
    runStep(kVerifyUpdate, Input{pPart, ulPartLen}, &Mechanism::verifyUpdate);
}

void Session::verifyFinal(CK_BYTE* pSignature, CK_ULONG ulSignatureLen)
{
    runStep(kVerifyFinal, Input{pSignature, ulSignatureLen}, &Mechanism::verifyFinal);
}

void Session::verifyRecover(CK_BYTE* pSignature, CK_ULONG ulSignatureLen, CK_BYTE* pData,
                            CK_ULONG* pulDataLen)
{
    runStep(kVerifyRecover, pData, [&](Mechanism& operation) {
        requirePointer(pulDataLen);
        requireBuffer(pSignature, ulSignatureLen);
        operation.verifyRecover(pData, pulDataLen, pSignature, ulSignatureLen);
    });
}

void Session::encrypt(CK_BYTE* pData, CK_ULONG ulDataLen, CK_BYTE* pEncrypted, CK_ULONG* pulEncryptedLen)
{
    runStep(kEncrypt, Input{pData, ulDataLen}, Output{pEncrypted, pulEncryptedLen}, &Mechanism::encrypt);
}

void Session::encryptUpdate(CK_BYTE* pPart, CK_ULONG ulPartLen, CK_BYTE* pEncrypted,
                            CK_ULONG* pulEncryptedLen)
{
    runStep(kEncryptUpdate, Input{pPart, ulPartLen}, Output{pEncrypted, pulEncryptedLen},
            &Mechanism::encryptUpdate);
}

void Session::encryptFinal(CK_BYTE* pEncrypted, CK_ULONG* pulEncryptedLen)
{
    runStep(kEncryptFinal, Output{pEncrypted, pulEncryptedLen}, &Mechanism::encryptFinal);
}

void Session::decrypt(CK_BYTE* pEncrypted, CK_ULONG ulEncryptedLen, CK_BYTE* pData, CK_ULONG* pulDataLen)
{
    runStep(kDecrypt, Input{pEncrypted, ulEncryptedLen}, Output{pData, pulDataLen}, &Mechanism::decrypt);
}

void Session::decryptUpdate(CK_BYTE* pEncrypted, CK_ULONG ulEncryptedLen, CK_BYTE* pPart,
                            CK_ULONG* pulPartLen)
{
    runStep(kDecryptUpdate, Input{pEncrypted, ulEncryptedLen}, Output{pPart, pulPartLen},
            &Mechanism::decryptUpdate);
}

void Session::decryptFinal(CK_BYTE* pPart, CK_ULONG* pulPartLen)
{
    runStep(kDecryptFinal, Output{pPart, pulPartLen}, &Mechanism::decryptFinal);
}

void Session::digest(CK_BYTE* pData, CK_ULONG ulDataLen, CK_BYTE* pDigest, CK_ULONG* pulDigestLen)
{
    runStep(kDigest, Input{pData, ulDataLen}, Output{pDigest, pulDigestLen}, &Mechanism::digest);
}

void Session::digestUpdate(CK_BYTE* pPart, CK_ULONG ulPartLen)
{
    runStep(kDigestUpdate, Input{pPart, ulPartLen}, &Mechanism::digestUpdate);
}

void Session::digestFinal(CK_BYTE* pDigest, CK_ULONG* pulDigestLen)
{
    runStep(kDigestFinal, Output{pDigest, pulDigestLen}, &Mechanism::digestFinal);
}

} // namespace PKCS11
