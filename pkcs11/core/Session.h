#pragma once

#include "pkcs11/core/Mechanism.h"
#include "pkcs11/core/ObjectSearch.h"
#include "pkcs11/token/Blob.h"

#include <memory>

namespace PKCS11 {

class Object;
class PrivateKey;
class PublicKey;
class SecretKey;
class Slot;
class Token;

template <class KeyClass>
struct OperationStart;
struct OperationStep;

/// One PKCS#11 session: its flags and at most one operation. Login state and objects belong to the slot's
/// token.
///
/// The methods that a Cryptoki call runs throw PKCS11Exception. Each fetches the token first
/// (CKR_TOKEN_NOT_PRESENT, CKR_TOKEN_NOT_RECOGNIZED, CKR_DEVICE_REMOVED), because a fetch may find another
/// card and drop the operation and every object; then it tests the operation and looks up objects.
/// SessionList::getSession starts a call, and the token is fetched once in it.
class Session {
public:
    Session();
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    void openSession(Slot* slot, CK_SLOT_ID slotID, CK_FLAGS flags, void* pApplication, CK_NOTIFY notify);
    /// Drops the operation and pauses the session; logs the token out when this was the slot's last session.
    void closeSession();
    /// Fetches the token for a paused session.
    void reopenSession();
    /// Drops the operation, active or not.
    void cleanMechanism();

    bool isPaused() const { return m_paused; }
    /// A session that has ended with its card is refused by each call, until one frees its handle.
    bool hasEnded() const { return m_hasEnded; }
    void end() { m_hasEnded = true; }
    Slot* slot() const { return m_slot; }
    CK_SLOT_ID slotID() const { return m_slotID; }
    CK_FLAGS flags() const { return m_flags; }
    /// Forgets the token of the previous Cryptoki call.
    void beginCall() { m_token = nullptr; }
    /// The slot's token, fetched once in a Cryptoki call: the one path to it. A fetch that finds another card
    /// pauses the session, which goes on with the new token then, or ends it (CKR_DEVICE_REMOVED, 0x32).
    Token* getToken();

    CK_STATE getSessionState(CK_FLAGS flags);
    CK_SESSION_INFO getSessionInfo();
    bool canAccessPrivate();

    void login(CK_USER_TYPE userType, const CK_BYTE* pPin, CK_ULONG ulPinLen);
    void logout();
    void initPIN(const Blob& pin);
    void setPIN(const Blob& oldPin, const Blob& newPin);

    void signInit(CK_MECHANISM* pMechanism, CK_OBJECT_HANDLE hKey);
    void sign(CK_BYTE* pData, CK_ULONG ulDataLen, CK_BYTE* pSignature, CK_ULONG* pulSignatureLen);
    void signUpdate(CK_BYTE* pPart, CK_ULONG ulPartLen);
    void signFinal(CK_BYTE* pSignature, CK_ULONG* pulSignatureLen);
    void verifyInit(CK_MECHANISM* pMechanism, CK_OBJECT_HANDLE hKey);
    void verify(CK_BYTE* pData, CK_ULONG ulDataLen, CK_BYTE* pSignature, CK_ULONG ulSignatureLen);
    void verifyUpdate(CK_BYTE* pPart, CK_ULONG ulPartLen);
    void verifyFinal(CK_BYTE* pSignature, CK_ULONG ulSignatureLen);
    void verifyRecoverInit(CK_MECHANISM* pMechanism, CK_OBJECT_HANDLE hKey);
    void verifyRecover(CK_BYTE* pSignature, CK_ULONG ulSignatureLen, CK_BYTE* pData, CK_ULONG* pulDataLen);
    void encryptInit(CK_MECHANISM* pMechanism, CK_OBJECT_HANDLE hKey);
    void encrypt(CK_BYTE* pData, CK_ULONG ulDataLen, CK_BYTE* pEncrypted, CK_ULONG* pulEncryptedLen);
    void encryptUpdate(CK_BYTE* pPart, CK_ULONG ulPartLen, CK_BYTE* pEncrypted, CK_ULONG* pulEncryptedLen);
    void encryptFinal(CK_BYTE* pEncrypted, CK_ULONG* pulEncryptedLen);
    void decryptInit(CK_MECHANISM* pMechanism, CK_OBJECT_HANDLE hKey);
    void decrypt(CK_BYTE* pEncrypted, CK_ULONG ulEncryptedLen, CK_BYTE* pData, CK_ULONG* pulDataLen);
    void decryptUpdate(CK_BYTE* pEncrypted, CK_ULONG ulEncryptedLen, CK_BYTE* pPart, CK_ULONG* pulPartLen);
    void decryptFinal(CK_BYTE* pPart, CK_ULONG* pulPartLen);
    void digestInit(CK_MECHANISM* pMechanism);
    void digest(CK_BYTE* pData, CK_ULONG ulDataLen, CK_BYTE* pDigest, CK_ULONG* pulDigestLen);
    void digestUpdate(CK_BYTE* pPart, CK_ULONG ulPartLen);
    void digestFinal(CK_BYTE* pDigest, CK_ULONG* pulDigestLen);

    void createObject(CK_ATTRIBUTE* attributes, CK_ULONG count, CK_OBJECT_HANDLE* phObject);
    void copyObject(CK_OBJECT_HANDLE hObject, CK_ATTRIBUTE* attributes, CK_ULONG count,
                    CK_OBJECT_HANDLE* phNew);
    void destroyObject(CK_OBJECT_HANDLE hObject);
    void getObjectSize(CK_OBJECT_HANDLE hObject, CK_ULONG* pulSize);
    void getAttributeValue(CK_OBJECT_HANDLE hObject, CK_ATTRIBUTE* attributes, CK_ULONG count);
    void setAttributeValue(CK_OBJECT_HANDLE hObject, CK_ATTRIBUTE* attributes, CK_ULONG count);
    void findObjectsInit(CK_ATTRIBUTE* attributes, CK_ULONG count);
    void findObjects(CK_OBJECT_HANDLE* phObject, CK_ULONG max, CK_ULONG* pulCount);
    void findObjectsFinal();

    void generateKey(CK_MECHANISM* pMechanism, CK_ATTRIBUTE* attributes, CK_ULONG count,
                     CK_OBJECT_HANDLE* phKey);
    void generateKeyPair(CK_MECHANISM* pMechanism, CK_ATTRIBUTE* publicAttributes, CK_ULONG publicCount,
                         CK_ATTRIBUTE* privateAttributes, CK_ULONG privateCount, CK_OBJECT_HANDLE* phPublic,
                         CK_OBJECT_HANDLE* phPrivate);
    void deriveKey(CK_MECHANISM* pMechanism, CK_OBJECT_HANDLE hBaseKey, CK_ATTRIBUTE* attributes,
                   CK_ULONG count, CK_OBJECT_HANDLE* phKey);
    void WrapKey(CK_MECHANISM* pMechanism, CK_OBJECT_HANDLE hWrappingKey, CK_OBJECT_HANDLE hKey,
                 CK_BYTE* pWrapped, CK_ULONG* pulWrappedLen);
    void UnwrapKey(CK_MECHANISM* pMechanism, CK_OBJECT_HANDLE hUnwrappingKey, CK_BYTE* pWrapped,
                   CK_ULONG ulWrappedLen, CK_ATTRIBUTE* attributes, CK_ULONG count, CK_OBJECT_HANDLE* phKey);
    void seedRandom(CK_BYTE* pSeed, CK_ULONG ulSeedLen);
    void generateRandom(CK_BYTE* pRandom, CK_ULONG ulRandomLen);

    /// True while the session holds an operation that works with the object.
    bool usesObject(const Object* object) const { return object != nullptr && m_operationObject == object; }

private:
    CK_STATE refreshState();
    bool isReadOnly() const { return (m_flags & CKF_RW_SESSION) == 0; }
    /// Throws CKR_SESSION_READ_ONLY (0xB5).
    void requireReadWrite(const char* where) const;

    bool isOperationActive() const { return m_operation != nullptr && m_operation->isActive(); }
    /// Throws CKR_OPERATION_ACTIVE (0x90).
    void requireNoOperation(const char* where) const;
    /// Replaces the operation by this one. Throws CKR_FUNCTION_NOT_SUPPORTED (0x54) when there is none.
    void attach(std::unique_ptr<Mechanism> operation, const Object* key, const char* where);
    void attachActive(std::unique_ptr<Mechanism> operation, const Object* key, const char* where);
    void endOperation();
    template <class KeyClass>
    void startOperation(const OperationStart<KeyClass>& start, KeyClass* (Session::*lookUp)(CK_OBJECT_HANDLE),
                        CK_MECHANISM* pMechanism, CK_OBJECT_HANDLE hKey);
    struct Input {
        CK_BYTE* bytes;
        CK_ULONG length;
    };
    struct Output {
        CK_BYTE* bytes;
        CK_ULONG* length;
    };
    /// Runs one step of the active operation; what becomes of the operation is the row's business.
    template <class Step>
    void runStep(const OperationStep& row, const CK_BYTE* asked, const Step& step);
    // The forms that most steps have.
    void runStep(const OperationStep& row, Input input, void (Mechanism::*step)(CK_BYTE*, CK_ULONG));
    void runStep(const OperationStep& row, Output output, void (Mechanism::*step)(CK_BYTE*, CK_ULONG*));
    void runStep(const OperationStep& row, Input input, Output output,
                 void (Mechanism::*step)(CK_BYTE*, CK_ULONG, CK_BYTE*, CK_ULONG*));
    /// Runs a key generation as the session's operation; ended in any case.
    template <class Operation, class Generate>
    void runKeyGeneration(std::unique_ptr<Operation> operation, const char* where, Generate generate);
    void requireKeyGeneration(const char* where);
    static bool ValidMechanism(CK_KEY_TYPE keyType, const CK_MECHANISM* pMechanism);

    Object* getObject(CK_OBJECT_HANDLE hObject);
    /// Null for an object of another class. Throws CKR_USER_NOT_LOGGED_IN (0x101) for a hidden private key.
    PrivateKey* getPrivateKey(CK_OBJECT_HANDLE hKey);
    PublicKey* getPublicKey(CK_OBJECT_HANDLE hKey);
    SecretKey* getSecretKey(CK_OBJECT_HANDLE hKey);
    /// Throws CKR_KEY_HANDLE_INVALID (0x60) for an object that is no key.
    Key* getKey(CK_OBJECT_HANDLE hKey);
    template <class KeyClass>
    KeyClass* findKey(CK_OBJECT_HANDLE hKey, const char* where);
    /// Puts the object into the token's list and returns its handle. Throws CKR_OBJECT_HANDLE_INVALID (0x82)
    /// for none and for one that is no Storage.
    CK_OBJECT_HANDLE insertObject(std::unique_ptr<Object> object);
    /// Throws CKR_USER_NOT_LOGGED_IN (0x101) for a private object without private access.
    void requireAccess(Object& object, const char* what, const char* where);
    Token& tokenForRandom(const char* where);

    Slot* m_slot = nullptr;
    CK_SLOT_ID m_slotID = 0;
    CK_STATE m_state = CKS_RO_PUBLIC_SESSION;
    CK_FLAGS m_flags = 0;
    CK_ULONG m_deviceError = 0;
    std::unique_ptr<Mechanism> m_operation;
    bool m_paused = false;
    bool m_hasEnded = false;

    /// Of an edition whose searches belong to their sessions.
    ObjectSearch m_search;
    /// The key that the operation works with; only compared, never followed.
    const Object* m_operationObject = nullptr;
    /// The token of the running Cryptoki call; null until it is fetched.
    Token* m_token = nullptr;
};

} // namespace PKCS11
