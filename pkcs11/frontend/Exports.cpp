#include "pkcs11/frontend/FunctionList.h"

#include "pkcs11/Edition.h"
#include "pkcs11/frontend/SystemWrapper.h"

#include <cstddef>
#include <iterator>

namespace {

using PKCS11::CallScope;

/// The last guard: no exception passes to the caller of the library, and no call to what is gone.
template <class Method, class OnEscape>
CK_RV guarded(const Method& method, const OnEscape& onEscape) noexcept
{
    if (SystemWrapper::hasEnded())
        return CKR_CRYPTOKI_NOT_INITIALIZED;
    const CallScope scope;
    if (SystemWrapper::hasEnded()) // while the call waited to begin
        return CKR_CRYPTOKI_NOT_INITIALIZED;
    try {
        return method();
    } catch (...) {
        onEscape();
        return CKR_GENERAL_ERROR;
    }
}

template <class Method>
CK_RV guarded(const Method& method) noexcept
{
    return guarded(method, [] {});
}

/// The same, and no half-begun operation stays behind in the session.
template <class Method>
CK_RV guardedOperation(CK_SESSION_HANDLE hSession, const Method& method) noexcept
{
    return guarded(method, [=] { wrapper.MakeMechanismInvalid(hSession); });
}

} // namespace

// Declared in the PKCS#11 header, in C linkage; one that differs from its declaration does not link.
#pragma GCC visibility push(default)

// --- Library ---

CK_RV C_Initialize(void* pInitArgs)
{
    return guarded([&] { return wrapper.Initialize(pInitArgs); });
}

CK_RV C_Finalize(void* pReserved)
{
    return guarded([&] { return wrapper.Finalize(pReserved); });
}

CK_RV C_GetInfo(CK_INFO_PTR pInfo)
{
    return guarded([&] { return wrapper.GetInfo(pInfo); });
}

CK_RV C_GetFunctionList(CK_FUNCTION_LIST_PTR_PTR ppFunctionList)
{
    return guarded([&] { return wrapper.GetFunctionList(ppFunctionList); });
}

// --- Slots and tokens ---

CK_RV C_GetSlotList(CK_BBOOL tokenPresent, CK_SLOT_ID_PTR pSlotList, CK_ULONG_PTR pulCount)
{
    return guarded([&] { return wrapper.GetSlotList(tokenPresent, pSlotList, pulCount); });
}

CK_RV C_GetSlotInfo(CK_SLOT_ID slotID, CK_SLOT_INFO_PTR pInfo)
{
    return guarded([&] { return wrapper.GetSlotInfo(slotID, pInfo); });
}

CK_RV C_GetTokenInfo(CK_SLOT_ID slotID, CK_TOKEN_INFO_PTR pInfo)
{
    return guarded([&] { return wrapper.GetTokenInfo(slotID, pInfo); });
}

CK_RV C_GetMechanismList(CK_SLOT_ID slotID, CK_MECHANISM_TYPE_PTR pMechanismList, CK_ULONG_PTR pulCount)
{
    return guarded([&] { return wrapper.GetMechanismList(slotID, pMechanismList, pulCount); });
}

CK_RV C_GetMechanismInfo(CK_SLOT_ID slotID, CK_MECHANISM_TYPE type, CK_MECHANISM_INFO_PTR pInfo)
{
    return guarded([&] { return wrapper.GetMechanismInfo(slotID, type, pInfo); });
}

CK_RV C_InitToken(CK_SLOT_ID slotID, CK_UTF8CHAR_PTR pPin, CK_ULONG ulPinLen, CK_UTF8CHAR_PTR pLabel)
{
    return guarded([&] { return wrapper.InitToken(slotID, pPin, ulPinLen, pLabel); });
}

CK_RV C_InitPIN(CK_SESSION_HANDLE hSession, CK_UTF8CHAR_PTR pPin, CK_ULONG ulPinLen)
{
    return guarded([&] { return wrapper.InitPIN(hSession, pPin, ulPinLen); });
}

CK_RV C_SetPIN(CK_SESSION_HANDLE hSession, CK_UTF8CHAR_PTR pOldPin, CK_ULONG ulOldLen,
               CK_UTF8CHAR_PTR pNewPin, CK_ULONG ulNewLen)
{
    return guarded([&] { return wrapper.SetPIN(hSession, pOldPin, ulOldLen, pNewPin, ulNewLen); });
}

// --- Sessions ---

CK_RV C_OpenSession(CK_SLOT_ID slotID, CK_FLAGS flags, void* pApplication, CK_NOTIFY Notify,
                    CK_SESSION_HANDLE_PTR phSession)
{
    return guarded([&] { return wrapper.OpenSession(slotID, flags, pApplication, Notify, phSession); });
}

CK_RV C_CloseSession(CK_SESSION_HANDLE hSession)
{
    return guarded([&] { return wrapper.CloseSession(hSession); });
}

CK_RV C_CloseAllSessions(CK_SLOT_ID slotID)
{
    return guarded([&] { return wrapper.CloseAllSessions(slotID); });
}

CK_RV C_GetSessionInfo(CK_SESSION_HANDLE hSession, CK_SESSION_INFO_PTR pInfo)
{
    return guarded([&] { return wrapper.GetSessionInfo(hSession, pInfo); });
}

CK_RV C_GetOperationState(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pOperationState,
                          CK_ULONG_PTR pulOperationStateLen)
{
    return guarded(
        [&] { return wrapper.GetOperationState(hSession, pOperationState, pulOperationStateLen); });
}

CK_RV C_SetOperationState(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pOperationState,
                          CK_ULONG ulOperationStateLen, CK_OBJECT_HANDLE hEncryptionKey,
                          CK_OBJECT_HANDLE hAuthenticationKey)
{
    return guarded([&] {
        return wrapper.SetOperationState(hSession, pOperationState, ulOperationStateLen, hEncryptionKey,
                                         hAuthenticationKey);
    });
}

CK_RV C_Login(CK_SESSION_HANDLE hSession, CK_USER_TYPE userType, CK_UTF8CHAR_PTR pPin, CK_ULONG ulPinLen)
{
    return guarded([&] { return wrapper.Login(hSession, userType, pPin, ulPinLen); });
}

CK_RV C_Logout(CK_SESSION_HANDLE hSession)
{
    return guarded([&] { return wrapper.Logout(hSession); });
}

// --- Objects ---

CK_RV C_CreateObject(CK_SESSION_HANDLE hSession, CK_ATTRIBUTE_PTR pTemplate, CK_ULONG ulCount,
                     CK_OBJECT_HANDLE_PTR phObject)
{
    return guarded([&] { return wrapper.CreateObject(hSession, pTemplate, ulCount, phObject); });
}

CK_RV C_CopyObject(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject, CK_ATTRIBUTE_PTR pTemplate,
                   CK_ULONG ulCount, CK_OBJECT_HANDLE_PTR phNewObject)
{
    return guarded([&] { return wrapper.CopyObject(hSession, hObject, pTemplate, ulCount, phNewObject); });
}

CK_RV C_DestroyObject(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject)
{
    return guarded([&] { return wrapper.DestroyObject(hSession, hObject); });
}

CK_RV C_GetObjectSize(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject, CK_ULONG_PTR pulSize)
{
    return guarded([&] { return wrapper.GetObjectSize(hSession, hObject, pulSize); });
}

CK_RV C_GetAttributeValue(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject, CK_ATTRIBUTE_PTR pTemplate,
                          CK_ULONG ulCount)
{
    return guarded([&] { return wrapper.GetAttributeValue(hSession, hObject, pTemplate, ulCount); });
}

CK_RV C_SetAttributeValue(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject, CK_ATTRIBUTE_PTR pTemplate,
                          CK_ULONG ulCount)
{
    return guarded([&] { return wrapper.SetAttributeValue(hSession, hObject, pTemplate, ulCount); });
}

CK_RV C_FindObjectsInit(CK_SESSION_HANDLE hSession, CK_ATTRIBUTE_PTR pTemplate, CK_ULONG ulCount)
{
    return guarded([&] { return wrapper.FindObjectsInit(hSession, pTemplate, ulCount); });
}

CK_RV C_FindObjects(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE_PTR phObject, CK_ULONG ulMaxObjectCount,
                    CK_ULONG_PTR pulObjectCount)
{
    return guarded([&] { return wrapper.FindObjects(hSession, phObject, ulMaxObjectCount, pulObjectCount); });
}

CK_RV C_FindObjectsFinal(CK_SESSION_HANDLE hSession)
{
    return guarded([&] { return wrapper.FindObjectsFinal(hSession); });
}

// --- Operations, which an escaped exception ends ---

CK_RV C_EncryptInit(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism, CK_OBJECT_HANDLE hKey)
{
    return guardedOperation(hSession, [&] { return wrapper.EncryptInit(hSession, pMechanism, hKey); });
}

CK_RV C_Encrypt(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen, CK_BYTE_PTR pEncryptedData,
                CK_ULONG_PTR pulEncryptedDataLen)
{
    return guardedOperation(hSession, [&] {
        return wrapper.Encrypt(hSession, pData, ulDataLen, pEncryptedData, pulEncryptedDataLen);
    });
}

CK_RV C_EncryptUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart, CK_ULONG ulPartLen,
                      CK_BYTE_PTR pEncryptedPart, CK_ULONG_PTR pulEncryptedPartLen)
{
    return guardedOperation(hSession, [&] {
        return wrapper.EncryptUpdate(hSession, pPart, ulPartLen, pEncryptedPart, pulEncryptedPartLen);
    });
}

CK_RV C_EncryptFinal(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pLastEncryptedPart,
                     CK_ULONG_PTR pulLastEncryptedPartLen)
{
    return guardedOperation(hSession, [&] {
        return wrapper.EncryptFinal(hSession, pLastEncryptedPart, pulLastEncryptedPartLen);
    });
}

CK_RV C_DecryptInit(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism, CK_OBJECT_HANDLE hKey)
{
    return guardedOperation(hSession, [&] { return wrapper.DecryptInit(hSession, pMechanism, hKey); });
}

CK_RV C_Decrypt(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pEncryptedData, CK_ULONG ulEncryptedDataLen,
                CK_BYTE_PTR pData, CK_ULONG_PTR pulDataLen)
{
    return guardedOperation(hSession, [&] {
        return wrapper.Decrypt(hSession, pEncryptedData, ulEncryptedDataLen, pData, pulDataLen);
    });
}

CK_RV C_DecryptUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pEncryptedPart, CK_ULONG ulEncryptedPartLen,
                      CK_BYTE_PTR pPart, CK_ULONG_PTR pulPartLen)
{
    return guardedOperation(hSession, [&] {
        return wrapper.DecryptUpdate(hSession, pEncryptedPart, ulEncryptedPartLen, pPart, pulPartLen);
    });
}

CK_RV C_DecryptFinal(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pLastPart, CK_ULONG_PTR pulLastPartLen)
{
    return guardedOperation(hSession,
                            [&] { return wrapper.DecryptFinal(hSession, pLastPart, pulLastPartLen); });
}

CK_RV C_DigestInit(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism)
{
    return guardedOperation(hSession, [&] { return wrapper.DigestInit(hSession, pMechanism); });
}

CK_RV C_Digest(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen, CK_BYTE_PTR pDigest,
               CK_ULONG_PTR pulDigestLen)
{
    return guardedOperation(
        hSession, [&] { return wrapper.Digest(hSession, pData, ulDataLen, pDigest, pulDigestLen); });
}

CK_RV C_DigestUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart, CK_ULONG ulPartLen)
{
    return guardedOperation(hSession, [&] { return wrapper.DigestUpdate(hSession, pPart, ulPartLen); });
}

CK_RV C_DigestKey(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hKey)
{
    return guardedOperation(hSession, [&] { return wrapper.DigestKey(hSession, hKey); });
}

CK_RV C_DigestFinal(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pDigest, CK_ULONG_PTR pulDigestLen)
{
    return guardedOperation(hSession, [&] { return wrapper.DigestFinal(hSession, pDigest, pulDigestLen); });
}

CK_RV C_SignInit(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism, CK_OBJECT_HANDLE hKey)
{
    return guardedOperation(hSession, [&] { return wrapper.SignInit(hSession, pMechanism, hKey); });
}

CK_RV C_Sign(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen, CK_BYTE_PTR pSignature,
             CK_ULONG_PTR pulSignatureLen)
{
    return guardedOperation(
        hSession, [&] { return wrapper.Sign(hSession, pData, ulDataLen, pSignature, pulSignatureLen); });
}

CK_RV C_SignUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart, CK_ULONG ulPartLen)
{
    return guardedOperation(hSession, [&] { return wrapper.SignUpdate(hSession, pPart, ulPartLen); });
}

CK_RV C_SignFinal(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pSignature, CK_ULONG_PTR pulSignatureLen)
{
    return guardedOperation(hSession,
                            [&] { return wrapper.SignFinal(hSession, pSignature, pulSignatureLen); });
}

CK_RV C_SignRecoverInit(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism, CK_OBJECT_HANDLE hKey)
{
    return guardedOperation(hSession, [&] { return wrapper.SignRecoverInit(hSession, pMechanism, hKey); });
}

CK_RV C_SignRecover(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen, CK_BYTE_PTR pSignature,
                    CK_ULONG_PTR pulSignatureLen)
{
    return guardedOperation(hSession, [&] {
        return wrapper.SignRecover(hSession, pData, ulDataLen, pSignature, pulSignatureLen);
    });
}

CK_RV C_VerifyInit(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism, CK_OBJECT_HANDLE hKey)
{
    return guardedOperation(hSession, [&] { return wrapper.VerifyInit(hSession, pMechanism, hKey); });
}

CK_RV C_Verify(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen, CK_BYTE_PTR pSignature,
               CK_ULONG ulSignatureLen)
{
    return guardedOperation(
        hSession, [&] { return wrapper.Verify(hSession, pData, ulDataLen, pSignature, ulSignatureLen); });
}

CK_RV C_VerifyUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart, CK_ULONG ulPartLen)
{
    return guardedOperation(hSession, [&] { return wrapper.VerifyUpdate(hSession, pPart, ulPartLen); });
}

CK_RV C_VerifyFinal(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pSignature, CK_ULONG ulSignatureLen)
{
    return guardedOperation(hSession,
                            [&] { return wrapper.VerifyFinal(hSession, pSignature, ulSignatureLen); });
}

CK_RV C_VerifyRecoverInit(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism, CK_OBJECT_HANDLE hKey)
{
    return guardedOperation(hSession, [&] { return wrapper.VerifyRecoverInit(hSession, pMechanism, hKey); });
}

CK_RV C_VerifyRecover(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pSignature, CK_ULONG ulSignatureLen,
                      CK_BYTE_PTR pData, CK_ULONG_PTR pulDataLen)
{
    return guardedOperation(hSession, [&] {
        return wrapper.VerifyRecover(hSession, pSignature, ulSignatureLen, pData, pulDataLen);
    });
}

CK_RV C_DigestEncryptUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart, CK_ULONG ulPartLen,
                            CK_BYTE_PTR pEncryptedPart, CK_ULONG_PTR pulEncryptedPartLen)
{
    return guardedOperation(hSession, [&] {
        return wrapper.DigestEncryptUpdate(hSession, pPart, ulPartLen, pEncryptedPart, pulEncryptedPartLen);
    });
}

CK_RV C_DecryptDigestUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pEncryptedPart,
                            CK_ULONG ulEncryptedPartLen, CK_BYTE_PTR pPart, CK_ULONG_PTR pulPartLen)
{
    return guardedOperation(hSession, [&] {
        return wrapper.DecryptDigestUpdate(hSession, pEncryptedPart, ulEncryptedPartLen, pPart, pulPartLen);
    });
}

CK_RV C_SignEncryptUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart, CK_ULONG ulPartLen,
                          CK_BYTE_PTR pEncryptedPart, CK_ULONG_PTR pulEncryptedPartLen)
{
    return guardedOperation(hSession, [&] {
        return wrapper.SignEncryptUpdate(hSession, pPart, ulPartLen, pEncryptedPart, pulEncryptedPartLen);
    });
}

CK_RV C_DecryptVerifyUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pEncryptedPart,
                            CK_ULONG ulEncryptedPartLen, CK_BYTE_PTR pPart, CK_ULONG_PTR pulPartLen)
{
    return guardedOperation(hSession, [&] {
        return wrapper.DecryptVerifyUpdate(hSession, pEncryptedPart, ulEncryptedPartLen, pPart, pulPartLen);
    });
}

CK_RV C_GenerateKey(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism, CK_ATTRIBUTE_PTR pTemplate,
                    CK_ULONG ulCount, CK_OBJECT_HANDLE_PTR phKey)
{
    return guardedOperation(
        hSession, [&] { return wrapper.GenerateKey(hSession, pMechanism, pTemplate, ulCount, phKey); });
}

CK_RV C_GenerateKeyPair(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,
                        CK_ATTRIBUTE_PTR pPublicKeyTemplate, CK_ULONG ulPublicKeyAttributeCount,
                        CK_ATTRIBUTE_PTR pPrivateKeyTemplate, CK_ULONG ulPrivateKeyAttributeCount,
                        CK_OBJECT_HANDLE_PTR phPublicKey, CK_OBJECT_HANDLE_PTR phPrivateKey)
{
    return guardedOperation(hSession, [&] {
        return wrapper.GenerateKeyPair(hSession, pMechanism, pPublicKeyTemplate, ulPublicKeyAttributeCount,
                                       pPrivateKeyTemplate, ulPrivateKeyAttributeCount, phPublicKey,
                                       phPrivateKey);
    });
}

CK_RV C_WrapKey(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism, CK_OBJECT_HANDLE hWrappingKey,
                CK_OBJECT_HANDLE hKey, CK_BYTE_PTR pWrappedKey, CK_ULONG_PTR pulWrappedKeyLen)
{
    return guardedOperation(hSession, [&] {
        return wrapper.WrapKey(hSession, pMechanism, hWrappingKey, hKey, pWrappedKey, pulWrappedKeyLen);
    });
}

CK_RV C_UnwrapKey(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism, CK_OBJECT_HANDLE hUnwrappingKey,
                  CK_BYTE_PTR pWrappedKey, CK_ULONG ulWrappedKeyLen, CK_ATTRIBUTE_PTR pTemplate,
                  CK_ULONG ulAttributeCount, CK_OBJECT_HANDLE_PTR phKey)
{
    return guardedOperation(hSession, [&] {
        return wrapper.UnwrapKey(hSession, pMechanism, hUnwrappingKey, pWrappedKey, ulWrappedKeyLen,
                                 pTemplate, ulAttributeCount, phKey);
    });
}

CK_RV C_DeriveKey(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism, CK_OBJECT_HANDLE hBaseKey,
                  CK_ATTRIBUTE_PTR pTemplate, CK_ULONG ulAttributeCount, CK_OBJECT_HANDLE_PTR phKey)
{
    return guardedOperation(hSession, [&] {
        return wrapper.DeriveKey(hSession, pMechanism, hBaseKey, pTemplate, ulAttributeCount, phKey);
    });
}

// --- Random numbers and the rest ---

CK_RV C_SeedRandom(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pSeed, CK_ULONG ulSeedLen)
{
    return guarded([&] { return wrapper.SeedRandom(hSession, pSeed, ulSeedLen); });
}

CK_RV C_GenerateRandom(CK_SESSION_HANDLE hSession, CK_BYTE_PTR RandomData, CK_ULONG ulRandomLen)
{
    return guarded([&] { return wrapper.GenerateRandom(hSession, RandomData, ulRandomLen); });
}

CK_RV C_GetFunctionStatus(CK_SESSION_HANDLE hSession)
{
    return guarded([&] { return wrapper.GetFunctionStatus(hSession); });
}

CK_RV C_CancelFunction(CK_SESSION_HANDLE hSession)
{
    return guarded([&] { return wrapper.CancelFunction(hSession); });
}

CK_RV C_WaitForSlotEvent(CK_FLAGS flags, CK_SLOT_ID_PTR pSlot, void* pReserved)
{
    return guarded([&] { return wrapper.WaitForSlotEvent(flags, pSlot, pReserved); });
}

#pragma GCC visibility pop

namespace PKCS11 {

#define QUARVEL_NAME(name) #name,
constexpr const char* kFunctions[] = {QUARVEL_CRYPTOKI_FUNCTIONS(QUARVEL_NAME)};
static_assert(offsetof(CK_FUNCTION_LIST, C_Initialize) + std::size(kFunctions) * sizeof(void*) ==
                  sizeof(CK_FUNCTION_LIST),
              "the list names each function of the table");

void set_function_list(CK_FUNCTION_LIST& list)
{
    list.version = kCryptokiVersion;
#define QUARVEL_ENTRY(name) list.C_##name = C_##name;
    QUARVEL_CRYPTOKI_FUNCTIONS(QUARVEL_ENTRY)
}

} // namespace PKCS11
