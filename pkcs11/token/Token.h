#pragma once

#include "pkcs11/core/ObjectList.h"
#include "pkcs11/token/Blob.h"

#include <memory>

namespace PKCS11 {

class Mechanism;
class MechanismKeygen;
class MechanismList;
class PCSCSlot;

/// Base of every card driver: one per slot while a recognised card is in it. Holds the token information, the
/// login that all sessions of the slot share, and all objects. The session calls only the virtual operations.
class Token {
public:
    /// Opens the card channel of the slot, if there is one. Throws CKR_GENERAL_ERROR (5) when that fails.
    explicit Token(PCSCSlot* slot);
    Token(const Token&) = delete;
    Token& operator=(const Token&) = delete;
    /// Closes the channel and wipes both PINs.
    virtual ~Token();

    /// Verifies the PIN on the card and keeps it for the login. Throws what VerifyPIN throws; then nothing
    /// changes.
    virtual void Login(const Blob& pin);
    virtual void LoginSO(const Blob& pin);
    /// Forgets PINs and marks of either login; sends nothing.
    virtual void Logout();

    virtual CK_TOKEN_INFO getInfo() = 0;
    /// The token's own.
    virtual MechanismList* getMechanismList() = 0;
    /// Sets the user PIN, the SO being logged in. As the changes below it throws CKR_FUNCTION_NOT_SUPPORTED
    /// (0x54) where the card has none of that, and the codes of the card's PINs.
    virtual void InitPIN(const Blob& pin) = 0;
    virtual void SetPIN(const Blob& oldPin, const Blob& newPin) = 0;
    virtual void SetSOPIN(const Blob& oldPin, const Blob& newPin) = 0;

    /// The factories yield a new object, or none where the card cannot hold it.
    virtual std::unique_ptr<Object> createPublicKey(CK_ATTRIBUTE* attributes, CK_ULONG count) = 0;
    virtual std::unique_ptr<Object> createPrivateKey(CK_ATTRIBUTE* attributes, CK_ULONG count) = 0;
    virtual std::unique_ptr<Object> createCertificate(CK_ATTRIBUTE* attributes, CK_ULONG count) = 0;
    virtual std::unique_ptr<Object> createData(CK_ATTRIBUTE* attributes, CK_ULONG count) = 0;
    virtual std::unique_ptr<Object> createSecretKey(CK_ATTRIBUTE* attributes, CK_ULONG count) = 0;
    /// The base throws CKR_FUNCTION_NOT_SUPPORTED (0x54).
    virtual std::unique_ptr<Object> copyObject(Object* original, CK_ATTRIBUTE* attributes, CK_ULONG count);
    virtual std::unique_ptr<Mechanism> createMechanismDigest(CK_MECHANISM* mechanism) = 0;
    virtual std::unique_ptr<MechanismKeygen> createMechanismGenerateKeyPair(CK_MECHANISM* mechanism) = 0;
    virtual std::unique_ptr<MechanismKeygen> createMechanismGenerateKey(CK_MECHANISM* mechanism) = 0;
    virtual void seedRandom(CK_BYTE* seed, CK_ULONG length) = 0;
    virtual void generateRandom(CK_BYTE* random, CK_ULONG length) = 0;

    // For readers with a PIN pad. Belong to the interface; nothing in the library calls them.

    /// Makes CKF_PROTECTED_AUTHENTICATION_PATH the only flag.
    virtual void setSpeFlag();
    /// Verifies a non-empty PIN. An empty one passes only after a login through a PIN pad, else
    /// CKR_USER_NOT_LOGGED_IN is thrown. Returns CKR_OK.
    virtual CK_RV CheckPin(const Blob& pin);

    /// Asks PC/SC whether the card handle still stands for the card; rv becomes the PC/SC result. Without a
    /// slot false, and rv is left alone.
    virtual bool isTokenHandleValid(long& rv);
    /// Card-level verification of the user PIN.
    virtual void VerifyPIN(const Blob& pin) = 0;
    /// Card-level verification of the SO PIN.
    virtual void VerifySOPIN(const Blob& pin) = 0;

    /// Throws CKR_OBJECT_HANDLE_INVALID (0x82) and CKR_USER_NOT_LOGGED_IN (0x101) for a hidden private
    /// object.
    Object* getObject(CK_OBJECT_HANDLE handle);
    ObjectList* getObjectList() { return &m_objectList; }
    /// Calls the factory of the template's CKA_CLASS; throws CKR_ATTRIBUTE_VALUE_INVALID (0x13) for a missing
    /// or other class.
    std::unique_ptr<Object> createObject(CK_ATTRIBUTE* attributes, CK_ULONG count);

    bool isUserLoggedIn() const { return m_userLoggedIn; }
    bool isSOLoggedIn() const { return m_soLoggedIn; }
    /// The PIN of the current login, or of the last successful verification; empty if there is none.
    const Blob& userPin() const { return m_userPin; }
    const Blob& soPin() const { return m_soPin; }
    void setSessionCounts(CK_ULONG sessions, CK_ULONG rwSessions);

protected:
    /// Keep a PIN that the card accepted; what stood there is wiped.
    void cacheUserPin(const Blob& pin);
    void cacheSOPin(const Blob& pin);
    void forgetPins();
    PCSCSlot* slot() const { return m_slot; }

    CK_TOKEN_INFO m_tokenInfo;

private:
    bool m_userLoggedIn = false;
    bool m_soLoggedIn = false;
    Blob m_soPin;
    Blob m_userPin;
    PCSCSlot* m_slot;
    ObjectList m_objectList;
};

} // namespace PKCS11
