#pragma once

#include "pkcs11/core/MechanismList.h"
#include "pkcs11/pcsc/StatusWord.h"
#include "pkcs11/token/Token.h"

namespace PKCS11 {

/// What every card driver shares: the token information from five getters, the mechanism list on demand, and
/// the refusals of cards that create no objects, make no keys and give no random numbers.
class CardToken : public Token {
public:
    using Token::Token;

    CK_TOKEN_INFO getInfo() override;
    MechanismList* getMechanismList() override;

    // No object, no digest; CKR_FUNCTION_NOT_SUPPORTED (0x54) for the rest.
    std::unique_ptr<Object> createPublicKey(CK_ATTRIBUTE* attributes, CK_ULONG count) override;
    std::unique_ptr<Object> createPrivateKey(CK_ATTRIBUTE* attributes, CK_ULONG count) override;
    std::unique_ptr<Object> createCertificate(CK_ATTRIBUTE* attributes, CK_ULONG count) override;
    std::unique_ptr<Object> createData(CK_ATTRIBUTE* attributes, CK_ULONG count) override;
    std::unique_ptr<Object> createSecretKey(CK_ATTRIBUTE* attributes, CK_ULONG count) override;
    std::unique_ptr<Mechanism> createMechanismDigest(CK_MECHANISM* mechanism) override;
    std::unique_ptr<MechanismKeygen> createMechanismGenerateKeyPair(CK_MECHANISM* mechanism) override;
    std::unique_ptr<MechanismKeygen> createMechanismGenerateKey(CK_MECHANISM* mechanism) override;
    void seedRandom(CK_BYTE* seed, CK_ULONG length) override;
    void generateRandom(CK_BYTE* random, CK_ULONG length) override;
    void InitPIN(const Blob& pin) override;
    void SetSOPIN(const Blob& oldPin, const Blob& newPin) override;
    void VerifySOPIN(const Blob& pin) override;

    /// Back to the state after power-on: no PIN is verified.
    virtual void ResetSecurity() = 0;
    virtual CK_FLAGS getFlag() = 0;
    virtual Blob getLabel() = 0;
    /// The manufacturer.
    virtual Blob getID() = 0;
    virtual Blob getModel() = 0;
    virtual Blob getSerialNumber() = 0;
    /// Adds the card's mechanisms to the empty list; called once.
    virtual void initMechanismList() = 0;

    /// Throws CKR_USER_NOT_LOGGED_IN (0x101) unless the user is logged in.
    void requireLogin(const char* where) const;
    /// Verifies the cached user PIN again, if there is one: the card may have been reset or used by others
    /// since.
    void replayUserPin();
    /// The channel to the card.
    PCSCSlot& card() const { return *slot(); }

protected:
    /// Throws CKR_DEVICE_ERROR (0x30) when no channel to a card opens.
    void requireChannel();
    MechanismList& mechanisms() { return m_mechanisms; }
    /// Takes a new object into the object list.
    void add(std::unique_ptr<Object> object) { getObjectList()->put(std::move(object)); }

private:
    MechanismList m_mechanisms;
    bool m_mechanismsBuilt = false;
};

/// Throws CKR_DEVICE_ERROR (0x30) with these texts unless the status is 9000.
void requireSuccess(int sw, const char* what = "", const char* where = "");

/// The outcome of VERIFY: 9000 returns, 6983 throws CKR_PIN_LOCKED (0xA4), anything else CKR_PIN_INCORRECT
/// (0xA0).
void requirePinAccepted(int sw);

/// The PIN filled up to the width; throws CKR_PIN_LEN_RANGE (0xA2) for a longer one.
Blob padPin(const Blob& pin, int width, unsigned char fill);

/// For cards that take a PIN as it is: throws CKR_PIN_LEN_RANGE for an empty PIN, which VERIFY takes as a
/// question for the state, and for one that does not fit a one-byte Lc.
void requirePlainPin(const Blob& pin);

} // namespace PKCS11
