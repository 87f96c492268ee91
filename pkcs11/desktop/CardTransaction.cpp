#include "pkcs11/desktop/CardTransaction.h"

#include "pkcs11/PKCS11Exception.h"
#include "pkcs11/pcsc/PCSCSlot.h"
#include "pkcs11/pcsc/SCardCall.h"

#include <utility>
#include <winscard.h>

namespace PKCS11 {

namespace {

/// How many resets by other programs a call goes along with before it has the card to itself.
constexpr int kRejoins = 3;

} // namespace

bool CardTransaction::begin(PCSCSlot& slot)
{
    if (m_slot == &slot)
        return false;
    end();
    settle(slot.cardHandle());
    long result = SCardBeginTransaction(slot.cardHandle());
    for (int i = 0; i < kRejoins && result == SCARD_W_RESET_CARD; ++i) {
        result = slot.RejoinChannel();
        if (result == SCARD_S_SUCCESS)
            result = SCardBeginTransaction(slot.cardHandle());
    }
    if (result == SCARD_W_REMOVED_CARD) {
        slot.noteExchange();
        throw PKCS11Exception(CKR_DEVICE_REMOVED);
    }
    if (result != SCARD_S_SUCCESS) {
        traceCall("SCardBeginTransaction", result);
        throw PKCS11Exception(CKR_GENERAL_ERROR);
    }
    m_slot = &slot;
    return true;
}

void CardTransaction::end()
{
    PCSCSlot* slot = std::exchange(m_slot, nullptr);
    if (slot == nullptr)
        return;
    const PCSCHandle card = slot->cardHandle();
    if (SCardEndTransaction(card, SCARD_LEAVE_CARD) == SCARD_S_SUCCESS)
        settle(card);
    else
        m_stuck = card;
}

void CardTransaction::settle(PCSCHandle connected)
{
    if (m_stuck == 0)
        return;
    const long result = SCardEndTransaction(m_stuck, SCARD_LEAVE_CARD);
    const bool isGone = result == SCARD_E_INVALID_HANDLE && m_stuck != connected;
    if (result == SCARD_S_SUCCESS || result == SCARD_E_NOT_TRANSACTED || isGone)
        m_stuck = 0;
}

void CardTransaction::end(const PCSCSlot& slot)
{
    if (m_slot == &slot)
        end();
}

} // namespace PKCS11
