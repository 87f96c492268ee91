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
    if (m_stuck != 0)
        SCardEndTransaction(std::exchange(m_stuck, 0), SCARD_LEAVE_CARD);
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
    if (slot != nullptr && SCardEndTransaction(slot->cardHandle(), SCARD_LEAVE_CARD) != SCARD_S_SUCCESS)
        m_stuck = slot->cardHandle();
}

void CardTransaction::end(const PCSCSlot& slot)
{
    if (m_slot == &slot)
        end();
}

} // namespace PKCS11
