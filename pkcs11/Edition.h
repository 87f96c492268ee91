#pragma once

#include "pkcs11/Cryptoki.h"

#include <memory>

namespace PKCS11 {

class Blob;
class Mechanism;
class MechanismInfo;
class PCSCSlot;
class PCSCSystem;
class PKCS11Wrapper;
class PrivateKey;
class SlotList;
class Token;

/// The one list of the places where an edition of the library may differ from the product. The product is
/// this class itself, whose operations add nothing; pkcs11/desktop/ holds the edition for desktop programs.
class Edition {
public:
    constexpr Edition() = default;
    Edition(const Edition&) = delete;
    Edition& operator=(const Edition&) = delete;

    /// The edition in force: the product, unless another one was installed.
    static Edition& current() { return *s_current; }
    /// Puts another edition in force. It must outlive every use of the library, static destruction included.
    static void install(Edition& edition) { s_current = &edition; }

    // --- Calls ---

    /// Around every exported function.
    virtual void beginCall() {}
    virtual void endCall() {}
    /// At the end of the process: like beginCall(), but false while a call is under way, which may not end
    /// before the process does.
    virtual bool tryBeginCall() { return true; }
    /// Before a call blocks for slot events: lets others run. True when endWait() has to follow.
    virtual bool beginWait() { return false; }
    /// False when the library is being finalised: nothing is left that the call could go on with.
    virtual bool endWait() { return true; }

    /// C_Initialize in a forked child of an initialised process starts the library anew; other calls are
    /// refused until then.
    virtual bool startsAnewInChild() const { return false; }

    // --- Readers ---

    /// The PC/SC system that the library object owns a reference of. Throws CKR_DEVICE_ERROR (0x30).
    virtual PCSCSystem* createSystem();
    virtual std::unique_ptr<SlotList> createSlotList(PKCS11Wrapper* wrapper, PCSCSystem* system);

    // --- Cards ---

    /// Before a command of this call goes to the card. True when it is the first one of the call and other
    /// programs may have used the card since the call before: selections may be theirs.
    virtual bool enterCard(PCSCSlot& slot);
    /// Before the channel to the card is closed.
    virtual void leaveCard(PCSCSlot& /*slot*/) {}
    /// What the PC/SC result of a status query on the card means; 0 is success.
    virtual long judgeStatus(PCSCSlot& /*slot*/, long result) { return result; }
    /// True for the PC/SC result of a command or a connection that a new connection can make good, the card
    /// left as it is.
    virtual bool wantsRejoin(long /*result*/) const { return false; }

    // --- Tokens ---

    /// A driver in place of the product's for this card-type word; none keeps the product's.
    virtual std::unique_ptr<Token> createDriver(const Blob& cardType, PCSCSlot& slot);
    /// An empty PIN is wrong, and is not sent: filled up to the card's length it would cost a try.
    virtual bool refusesEmptyPin() const { return false; }
    /// A login whose PIN the card refuses later, as another program has changed it, is over: no second
    /// operation costs a try.
    virtual bool endsRefusedLogin() const { return false; }
    /// A card that refuses a public key is not left open for loading, where it computes nothing until it is
    /// reset.
    virtual bool closesRefusedLoading() const { return false; }
    /// What C_GetTokenInfo reports beside the flags of the driver.
    virtual CK_FLAGS addedTokenFlags() const { return 0; }

    // --- Sessions ---

    /// Whether a card that is lost with this PC/SC result takes its sessions with it. Otherwise they are
    /// paused, and go on with the next card.
    virtual bool endsSessions(long /*status*/) const { return false; }
    /// A search belongs to its session; otherwise the sessions of a token share one.
    virtual bool isSearchPerSession() const { return false; }

    /// The key's signature operation.
    virtual std::unique_ptr<Mechanism> createSignMechanism(PrivateKey& key, CK_MECHANISM* mechanism,
                                                           MechanismInfo* info);

protected:
    /// Nobody deletes an edition, and it is used until the process ends.
    ~Edition() = default;

private:
    static Edition s_product;
    static Edition* s_current;
};

/// One call of an exported function.
class CallScope {
public:
    CallScope() { Edition::current().beginCall(); }
    ~CallScope() { Edition::current().endCall(); }
    CallScope(const CallScope&) = delete;
    CallScope& operator=(const CallScope&) = delete;
};

} // namespace PKCS11
