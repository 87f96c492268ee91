#include "pkcs11/desktop/DesktopEdition.h"

#include "pkcs11/desktop/BlockSign.h"
#include "pkcs11/desktop/DesktopCardOSToken.h"
#include "pkcs11/desktop/DesktopPIVToken.h"
#include "pkcs11/desktop/DesktopSlotList.h"
#include "pkcs11/desktop/DesktopSystem.h"
#include "pkcs11/desktop/SignInParts.h"
#include "pkcs11/drivers/common/CardObjects.h"
#include "pkcs11/pcsc/CardIdentification.h"
#include "pkcs11/pcsc/PCSCSlot.h"
#include "pkcs11/pcsc/SlotWaits.h"

#include <type_traits>
#include <winscard.h>

namespace PKCS11 {

namespace {

/// The padding is built here, and the key computes with the block as it is.
std::unique_ptr<Mechanism> createPSSSign(CardPrivateKey& key, const CK_MECHANISM& mechanism,
                                         MechanismInfo* info)
{
    CK_MECHANISM rawMechanism{CKM_RSA_X_509, nullptr, 0};
    auto raw = key.createSignMechanism(&rawMechanism, info);
    return std::make_unique<PSSSign>(std::move(raw), key.getModulus(), mechanism);
}

} // namespace

DesktopEdition::DesktopEdition()
{
    pthread_atfork(nullptr, nullptr, afterFork);
}

void DesktopEdition::afterFork()
{
    instance().m_lock.reset();
    instance().m_transaction.forget();
    SlotWaits::forgetEndings();
}

void DesktopEdition::endCall()
{
    if (!m_lock.isInside())
        return; // its wait was abandoned
    if (!m_lock.isNested())
        m_transaction.end();
    m_lock.leave();
}

bool DesktopEdition::beginWait()
{
    return !m_lock.isNested() && m_lock.leave();
}

long DesktopEdition::judgeStatus(PCSCSlot& slot, long result)
{
    return result == SCARD_W_RESET_CARD ? slot.RejoinChannel() : result;
}

bool DesktopEdition::wantsRejoin(long result) const
{
    return result == SCARD_E_PROTO_MISMATCH;
}

bool DesktopEdition::endsSessions(long status) const
{
    return !isContextLost(status);
}

DesktopEdition& DesktopEdition::instance()
{
    static_assert(std::is_trivially_destructible_v<DesktopEdition>, "calls may outlive static destruction");
    static DesktopEdition edition;
    return edition;
}

PCSCSystem* DesktopEdition::createSystem()
{
    return std::make_unique<DesktopSystem>().release();
}

std::unique_ptr<SlotList> DesktopEdition::createSlotList(PKCS11Wrapper* wrapper, PCSCSystem* system)
{
    return std::make_unique<DesktopSlotList>(wrapper, system);
}

std::unique_ptr<Token> DesktopEdition::createDriver(const Blob& cardType, PCSCSlot& slot)
{
    if (cardType == Blob(kCardOSCard))
        return std::make_unique<DesktopCardOSToken>(&slot);
    if (cardType == Blob(kPIVCard))
        return std::make_unique<DesktopPIVToken>(&slot);
    return nullptr;
}

std::unique_ptr<Mechanism> DesktopEdition::createSignMechanism(PrivateKey& key, CK_MECHANISM* mechanism,
                                                               MechanismInfo* info)
{
    auto* cardKey = dynamic_cast<CardPrivateKey*>(&key);
    if (cardKey == nullptr)
        return Edition::createSignMechanism(key, mechanism, info);
    auto operation = mechanism->mechanism == CKM_RSA_PKCS_PSS ? createPSSSign(*cardKey, *mechanism, info)
                                                              : cardKey->createSignMechanism(mechanism, info);
    return operation != nullptr ? std::make_unique<SignInParts>(std::move(operation)) : nullptr;
}

} // namespace PKCS11
