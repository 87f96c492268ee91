#pragma once

#include "pkcs11/PKCS11Exception.h"
#include "pkcs11/core/MechanismList.h"
#include "pkcs11/pcsc/StatusWord.h"
#include "pkcs11/token/Token.h"

#include <functional>
#include <type_traits>

namespace PKCS11 {

/// What every card driver shares: the token information from five getters, the mechanism list on demand, and
/// the refusals of cards that create no objects, make no keys and give no random numbers; and what to do when
/// another program resets the card, or somebody exchanges it, in the middle of a piece of work.
class CardToken : public Token {
public:
    /// Opens the channel. Throws CKR_GENERAL_ERROR (5) when that fails.
    explicit CardToken(PCSCSlot* slot);

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
    /// The flags of the token information; CKF_RNG too, although generateRandom refuses.
    virtual CK_FLAGS getFlag() { return CKF_RNG | CKF_LOGIN_REQUIRED | CKF_USER_PIN_INITIALIZED; }
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
    /// The same for what misses the PIN beside the operations with a private key. A PIN that the card has
    /// refused meanwhile costs no further try: the same code again, CKR_PIN_INCORRECT or CKR_PIN_LOCKED.
    void showUserPinAgain();
    /// That, unless the card has not been disturbed since it accepted a PIN.
    void showLostUserPin();
    /// The channel to the card.
    PCSCSlot& card() const { return *slot(); }

    /// Runs work that makes sense as a whole only (a file, a key, an operation with its PIN) and gives its
    /// result. When the card was reset meanwhile, whatever came of it, the work is done once more; a PIN that
    /// the card refused is not sent again. The work begins with a selection, a PIN or requireApplication().
    /// Throws what the work throws, CKR_DEVICE_REMOVED (0x32) for a result that may be another card's,
    /// CKR_DEVICE_ERROR (0x30) when the card is reset again.
    template <class Work>
    auto whole(Work work)
    {
        if constexpr (std::is_void_v<decltype(work())>) {
            runWhole(work);
        } else {
            decltype(work()) result{};
            runWhole([&] { result = work(); });
            return result;
        }
    }

    /// Selects the application unless it is still the current one as far as anybody can tell.
    void requireApplication();

protected:
    /// Makes the driver's application the current one and calls noteSelection(). Throws CKR_DEVICE_ERROR.
    virtual void selectApplication() = 0;
    /// The application was selected just now.
    void noteSelection();
    /// Selects the application, once more when a reset in the middle of that made it fail.
    void makeCurrent();
    /// VERIFY; the status of the card. When the card was reset while it was under way, it met a card without
    /// its application: that is selected and VERIFY sent once more, unless the card has compared the PIN.
    [[nodiscard]] int sendVerify(const Blob& header, const Blob& data);
    /// CHANGE REFERENCE DATA or RESET RETRY COUNTER; the status of the card. Throws CKR_DEVICE_ERROR when the
    /// card was reset meanwhile and refuses without having compared the PIN. When the exchange fails, or the
    /// card refuses the PIN after a reset, nobody knows which PIN holds: the login ends.
    [[nodiscard]] int sendNewPin(const Blob& header, const Blob& data);
    /// Throws CKR_DEVICE_ERROR (0x30) without a slot, CKR_GENERAL_ERROR (5) when no channel to a card opens.
    void requireChannel();
    MechanismList& mechanisms() { return m_mechanisms; }
    /// Takes a new object into the object list.
    void add(std::unique_ptr<Object> object) { getObjectList()->put(std::move(object)); }

private:
    void runWhole(const std::function<void()>& work);

    MechanismList m_mechanisms;
    bool m_mechanismsBuilt = false;
    /// PCSCSlot::selectionMark() of the last selection of the application.
    int m_selectedAt;
    /// The same of the last PIN that was accepted.
    int m_pinShownAt;
    /// With which code the card refused the cached user PIN when it saw it last.
    CK_RV m_pinRefusal = CKR_OK;
    /// Status word of the last VERIFY. Showing the cached user PIN again sets 0 first, so that a failure
    /// before VERIFY was sent is not taken for a refusal.
    int m_verifyStatus = 0;
};

/// Throws CKR_DEVICE_ERROR (0x30) with these texts unless the status is 9000.
void requireSuccess(int sw, const char* what = "", const char* where = "");

/// For whoever does without what the card refuses: throws the failure on when it is the reader's
/// (CKR_GENERAL_ERROR), which is no answer of the card.
void passReaderFailure(const PKCS11Exception& failure);

/// The outcome of VERIFY: 9000 returns, 6983 throws CKR_PIN_LOCKED (0xA4), anything else CKR_PIN_INCORRECT
/// (0xA0).
void requirePinAccepted(int sw);

/// The PIN filled up to the width; throws CKR_PIN_LEN_RANGE (0xA2) for a longer one.
Blob padPin(const Blob& pin, int width, unsigned char fill);

/// For cards that take a PIN as it is: throws CKR_PIN_LEN_RANGE for an empty PIN, which VERIFY takes as a
/// question for the state, and for one that does not fit a one-byte Lc.
void requirePlainPin(const Blob& pin);

} // namespace PKCS11
