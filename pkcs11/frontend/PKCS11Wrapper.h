#pragma once

#include "pkcs11/PKCS11Exception.h"
#include "pkcs11/ReferenceCounter.h"
#include "pkcs11/core/SessionList.h"
#include "pkcs11/pcsc/SlotList.h"

#include <atomic>
#include <initializer_list>
#include <memory>

namespace PKCS11 {

class Session;
struct Argument;
struct Call;
template <class Signature>
class Action;

/// The library object: function table, initialised state, slots, sessions and trace, and one method for each
/// exported function. A method never throws: it traces the call and turns every failure into a CK_RV.
///
/// Nothing here is locked. Calls come from one thread at a time, but for WaitForSlotEvent: any number of
/// threads may be in it, whatever the others do, and Finalize ends it in all of them. After the destructor,
/// which other exit functions may still outlive, every exported function answers CKR_CRYPTOKI_NOT_INITIALIZED
/// (0x190).
class PKCS11Wrapper : public ReferenceCounter {
public:
    PKCS11Wrapper();
    ~PKCS11Wrapper() override;

    /// Makes the slots of the readers that are there; called by Initialize.
    virtual CK_RV InitSlotList() = 0;
    /// Called before slots are counted, for a wrapper that looks for new readers itself.
    virtual CK_RV UpdateSlotList() { return CKR_OK; }
    virtual CK_RV GetInfo(CK_INFO* pInfo) = 0;
    /// Called after a slot-addressed call failed: pauses the slot's sessions when its card is gone or
    /// unknown.
    virtual void catchTokenException(CK_SLOT_ID slotID, PKCS11Exception ex);
    /// The same for a session-addressed call.
    virtual void catchSessionException(CK_SESSION_HANDLE hSession, PKCS11Exception ex);
    /// Makes the PC/SC system before the slots; may throw CKR_DEVICE_ERROR (0x30) where there is no service.
    virtual CK_RV InitializeSystem() { return CKR_OK; }
    /// Gives it up after the slots.
    virtual void FinalizeSystem() {}
    /// Opens the trace, if one can be had; called at the first use of the library.
    virtual void InitLogger() {}

    /// Pauses every session of the slot; called by the slot when its card was exchanged.
    void closeAllSessions(Slot* slot);
    /// Drops the session's operation after an exception that no method caught.
    void MakeMechanismInvalid(CK_SESSION_HANDLE hSession);
    /// Null while the library is not initialised.
    SessionList* sessions() const { return m_sessions.get(); }
    SlotList* slots() const { return m_slots.get(); }

    /// True from the end of the process on: nothing of the object is there for a call that begins.
    static bool hasEnded() { return s_ended; }
    static void noteEnd() { s_ended = true; }

    // One method per exported function, in the order and with the parameters of PKCS#11.
    // --- Life cycle ---
    CK_RV Initialize(void* pInitArgs);
    CK_RV Finalize(void* pReserved);
    CK_RV GetFunctionList(CK_FUNCTION_LIST_PTR_PTR ppFunctionList);
    // --- Slots and tokens ---
    CK_RV GetSlotList(CK_BBOOL tokenPresent, CK_SLOT_ID_PTR pSlotList, CK_ULONG_PTR pulCount);
    CK_RV GetSlotInfo(CK_SLOT_ID slotID, CK_SLOT_INFO_PTR pInfo);
    CK_RV GetTokenInfo(CK_SLOT_ID slotID, CK_TOKEN_INFO_PTR pInfo);
    CK_RV GetMechanismList(CK_SLOT_ID slotID, CK_MECHANISM_TYPE_PTR pMechanismList, CK_ULONG_PTR pulCount);
    CK_RV GetMechanismInfo(CK_SLOT_ID slotID, CK_MECHANISM_TYPE type, CK_MECHANISM_INFO_PTR pInfo);
    CK_RV InitToken(CK_SLOT_ID slotID, CK_UTF8CHAR_PTR pPin, CK_ULONG ulPinLen, CK_UTF8CHAR_PTR pLabel);
    CK_RV InitPIN(CK_SESSION_HANDLE hSession, CK_UTF8CHAR_PTR pPin, CK_ULONG ulPinLen);
    CK_RV SetPIN(CK_SESSION_HANDLE hSession, CK_UTF8CHAR_PTR pOldPin, CK_ULONG ulOldLen,
                 CK_UTF8CHAR_PTR pNewPin, CK_ULONG ulNewLen);
    // --- Sessions ---
    CK_RV OpenSession(CK_SLOT_ID slotID, CK_FLAGS flags, void* pApplication, CK_NOTIFY Notify,
                      CK_SESSION_HANDLE_PTR phSession);
    CK_RV CloseSession(CK_SESSION_HANDLE hSession);
    CK_RV CloseAllSessions(CK_SLOT_ID slotID);
    CK_RV GetSessionInfo(CK_SESSION_HANDLE hSession, CK_SESSION_INFO_PTR pInfo);
    CK_RV GetOperationState(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pOperationState,
                            CK_ULONG_PTR pulOperationStateLen);
    CK_RV SetOperationState(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pOperationState,
                            CK_ULONG ulOperationStateLen, CK_OBJECT_HANDLE hEncryptionKey,
                            CK_OBJECT_HANDLE hAuthenticationKey);
    CK_RV Login(CK_SESSION_HANDLE hSession, CK_USER_TYPE userType, CK_UTF8CHAR_PTR pPin, CK_ULONG ulPinLen);
    CK_RV Logout(CK_SESSION_HANDLE hSession);
    // --- Objects ---
    CK_RV CreateObject(CK_SESSION_HANDLE hSession, CK_ATTRIBUTE_PTR pTemplate, CK_ULONG ulCount,
                       CK_OBJECT_HANDLE_PTR phObject);
    CK_RV CopyObject(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject, CK_ATTRIBUTE_PTR pTemplate,
                     CK_ULONG ulCount, CK_OBJECT_HANDLE_PTR phNewObject);
    CK_RV DestroyObject(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject);
    CK_RV GetObjectSize(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject, CK_ULONG_PTR pulSize);
    CK_RV GetAttributeValue(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject, CK_ATTRIBUTE_PTR pTemplate,
                            CK_ULONG ulCount);
    CK_RV SetAttributeValue(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject, CK_ATTRIBUTE_PTR pTemplate,
                            CK_ULONG ulCount);
    CK_RV FindObjectsInit(CK_SESSION_HANDLE hSession, CK_ATTRIBUTE_PTR pTemplate, CK_ULONG ulCount);
    CK_RV FindObjects(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE_PTR phObject, CK_ULONG ulMaxObjectCount,
                      CK_ULONG_PTR pulObjectCount);
    CK_RV FindObjectsFinal(CK_SESSION_HANDLE hSession);
    // --- Operations ---
    CK_RV EncryptInit(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism, CK_OBJECT_HANDLE hKey);
    CK_RV Encrypt(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen,
                  CK_BYTE_PTR pEncryptedData, CK_ULONG_PTR pulEncryptedDataLen);
    CK_RV EncryptUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart, CK_ULONG ulPartLen,
                        CK_BYTE_PTR pEncryptedPart, CK_ULONG_PTR pulEncryptedPartLen);
    CK_RV EncryptFinal(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pLastEncryptedPart,
                       CK_ULONG_PTR pulLastEncryptedPartLen);
    CK_RV DecryptInit(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism, CK_OBJECT_HANDLE hKey);
    CK_RV Decrypt(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pEncryptedData, CK_ULONG ulEncryptedDataLen,
                  CK_BYTE_PTR pData, CK_ULONG_PTR pulDataLen);
    CK_RV DecryptUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pEncryptedPart, CK_ULONG ulEncryptedPartLen,
                        CK_BYTE_PTR pPart, CK_ULONG_PTR pulPartLen);
    CK_RV DecryptFinal(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pLastPart, CK_ULONG_PTR pulLastPartLen);
    CK_RV DigestInit(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism);
    CK_RV Digest(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen, CK_BYTE_PTR pDigest,
                 CK_ULONG_PTR pulDigestLen);
    CK_RV DigestUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart, CK_ULONG ulPartLen);
    CK_RV DigestKey(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hKey);
    CK_RV DigestFinal(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pDigest, CK_ULONG_PTR pulDigestLen);
    CK_RV SignInit(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism, CK_OBJECT_HANDLE hKey);
    CK_RV Sign(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen, CK_BYTE_PTR pSignature,
               CK_ULONG_PTR pulSignatureLen);
    CK_RV SignUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart, CK_ULONG ulPartLen);
    CK_RV SignFinal(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pSignature, CK_ULONG_PTR pulSignatureLen);
    CK_RV SignRecoverInit(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism, CK_OBJECT_HANDLE hKey);
    CK_RV SignRecover(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen,
                      CK_BYTE_PTR pSignature, CK_ULONG_PTR pulSignatureLen);
    CK_RV VerifyInit(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism, CK_OBJECT_HANDLE hKey);
    CK_RV Verify(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen, CK_BYTE_PTR pSignature,
                 CK_ULONG ulSignatureLen);
    CK_RV VerifyUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart, CK_ULONG ulPartLen);
    CK_RV VerifyFinal(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pSignature, CK_ULONG ulSignatureLen);
    CK_RV VerifyRecoverInit(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism, CK_OBJECT_HANDLE hKey);
    CK_RV VerifyRecover(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pSignature, CK_ULONG ulSignatureLen,
                        CK_BYTE_PTR pData, CK_ULONG_PTR pulDataLen);
    CK_RV DigestEncryptUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart, CK_ULONG ulPartLen,
                              CK_BYTE_PTR pEncryptedPart, CK_ULONG_PTR pulEncryptedPartLen);
    CK_RV DecryptDigestUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pEncryptedPart,
                              CK_ULONG ulEncryptedPartLen, CK_BYTE_PTR pPart, CK_ULONG_PTR pulPartLen);
    CK_RV SignEncryptUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart, CK_ULONG ulPartLen,
                            CK_BYTE_PTR pEncryptedPart, CK_ULONG_PTR pulEncryptedPartLen);
    CK_RV DecryptVerifyUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pEncryptedPart,
                              CK_ULONG ulEncryptedPartLen, CK_BYTE_PTR pPart, CK_ULONG_PTR pulPartLen);
    CK_RV GenerateKey(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism, CK_ATTRIBUTE_PTR pTemplate,
                      CK_ULONG ulCount, CK_OBJECT_HANDLE_PTR phKey);
    CK_RV GenerateKeyPair(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,
                          CK_ATTRIBUTE_PTR pPublicKeyTemplate, CK_ULONG ulPublicKeyAttributeCount,
                          CK_ATTRIBUTE_PTR pPrivateKeyTemplate, CK_ULONG ulPrivateKeyAttributeCount,
                          CK_OBJECT_HANDLE_PTR phPublicKey, CK_OBJECT_HANDLE_PTR phPrivateKey);
    CK_RV WrapKey(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism, CK_OBJECT_HANDLE hWrappingKey,
                  CK_OBJECT_HANDLE hKey, CK_BYTE_PTR pWrappedKey, CK_ULONG_PTR pulWrappedKeyLen);
    CK_RV UnwrapKey(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism, CK_OBJECT_HANDLE hUnwrappingKey,
                    CK_BYTE_PTR pWrappedKey, CK_ULONG ulWrappedKeyLen, CK_ATTRIBUTE_PTR pTemplate,
                    CK_ULONG ulAttributeCount, CK_OBJECT_HANDLE_PTR phKey);
    CK_RV DeriveKey(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism, CK_OBJECT_HANDLE hBaseKey,
                    CK_ATTRIBUTE_PTR pTemplate, CK_ULONG ulAttributeCount, CK_OBJECT_HANDLE_PTR phKey);
    // --- Random numbers and the rest ---
    CK_RV SeedRandom(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pSeed, CK_ULONG ulSeedLen);
    CK_RV GenerateRandom(CK_SESSION_HANDLE hSession, CK_BYTE_PTR RandomData, CK_ULONG ulRandomLen);
    CK_RV GetFunctionStatus(CK_SESSION_HANDLE hSession);
    CK_RV CancelFunction(CK_SESSION_HANDLE hSession);
    CK_RV WaitForSlotEvent(CK_FLAGS flags, CK_SLOT_ID_PTR pSlot, void* pReserved);

protected:
    std::unique_ptr<SlotList> m_slots;
    /// Set once InitLogger has installed a trace.
    bool m_hasLogger = false;
    /// The trace is also that of the process that forked this one.
    bool m_sharesTrace = false;

private:
    enum class Hook { none, token, session };
    using Arguments = std::initializer_list<Argument>;

    CK_RV Init(CK_C_INITIALIZE_ARGS* args);
    /// In a forked child: forgets what it inherited. The trace goes on after the parent's lines.
    void startAnew();
    void tearDown();
    bool pausesSessions(const PKCS11Exception& ex) const;

    /// A call from its first trace line to its last: arguments, initialised check, action, failure with its
    /// hook, which `target` is for.
    CK_RV run(const Call& call, Arguments arguments, Hook hook, CK_ULONG target, Action<CK_RV()> action);
    void runHook(Hook hook, CK_ULONG target, const PKCS11Exception& failure);
    /// A call that addresses neither a slot nor a session.
    CK_RV plainCall(const Call& call, Arguments arguments, Action<CK_RV()> action);
    /// A call that reaches nothing below and always answers the same.
    CK_RV answer(const Call& call, Arguments arguments, CK_RV rv, Arguments results = {});
    /// CKR_SLOT_ID_INVALID (3) for an unknown slot.
    CK_RV slotCall(const Call& call, CK_SLOT_ID slotID, Arguments arguments, Action<CK_RV(Slot&)> action,
                   Hook hook = Hook::token);
    /// The results are logged when the action succeeded.
    CK_RV sessionCall(const Call& call, CK_SESSION_HANDLE hSession, Arguments arguments,
                      Action<void(Session&)> action, Arguments results = {});

    /// False in a forked child that starts anew: what it inherited is the parent's.
    bool isInitialised() const;

    CK_FUNCTION_LIST m_functionList{};
    std::unique_ptr<SessionList> m_sessions;
    bool m_pauseOnRemoval = true;
    std::atomic<bool> m_initialised{false};
    int m_initialiseCount = 0;
    int m_process;
    /// Outlives the object.
    static std::atomic<bool> s_ended;
};

} // namespace PKCS11
