#pragma once

#include "pkcs11/Edition.h"
#include "pkcs11/desktop/CallLock.h"
#include "pkcs11/desktop/CardTransaction.h"
#include "pkcs11/pcsc/SlotWaits.h"

namespace PKCS11 {

/// What desktop programs need beyond the product. The preset `desktop` puts it in force.
class DesktopEdition final : public Edition {
public:
    static DesktopEdition& instance();

    void beginCall() override { m_lock.enter(); }
    void endCall() override;
    bool tryBeginCall() override { return !m_lock.isInside() && m_lock.tryEnter(); }
    bool beginWait() override;
    bool endWait() override { return m_lock.enterUnless(SlotWaits::isEnding); }

    PCSCSystem* createSystem() override;
    std::unique_ptr<SlotList> createSlotList(PKCS11Wrapper* wrapper, PCSCSystem* system) override;
    bool startsAnewInChild() const override { return true; }

    /// Puts the commands of a call into one transaction.
    bool enterCard(PCSCSlot& slot) override { return m_transaction.begin(slot); }
    void leaveCard(PCSCSlot& slot) override { m_transaction.end(slot); }
    /// A card that another program has reset is the same card.
    long judgeStatus(PCSCSlot& slot, long result) override;
    /// The service has forgotten the card's protocol over another program's reset.
    bool wantsRejoin(long result) const override;

    bool refusesEmptyPin() const override { return true; }
    bool endsRefusedLogin() const override { return true; }
    bool closesRefusedLoading() const override { return true; }
    std::unique_ptr<Token> createDriver(const Blob& cardType, PCSCSlot& slot) override;
    /// Desktop clients pass over a token without CKF_TOKEN_INITIALIZED; the drivers do not report it.
    CK_FLAGS addedTokenFlags() const override { return CKF_TOKEN_INITIALIZED; }

    /// A removal or an exchange, as desktop programs tell another card by their sessions; not a restart of
    /// the service, which may have kept the card.
    bool endsSessions(long status) const override;
    bool isSearchPerSession() const override { return true; }

    /// With RSA-PSS for the tokens that list it, and in parts.
    std::unique_ptr<Mechanism> createSignMechanism(PrivateKey& key, CK_MECHANISM* mechanism,
                                                   MechanismInfo* info) override;

private:
    DesktopEdition();
    static void afterFork();

    CallLock m_lock;
    CardTransaction m_transaction;
};

} // namespace PKCS11
