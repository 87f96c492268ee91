#include "pkcs11/pcsc/PCSCSlot.h"

#include "pkcs11/Edition.h"
#include "pkcs11/PKCS11Exception.h"
#include "pkcs11/pcsc/SCardCall.h"

#include <algorithm>
#include <array>
#include <utility>
#include <winscard.h>

namespace PKCS11 {

namespace {

constexpr DWORD kProtocols = SCARD_PROTOCOL_T0 | SCARD_PROTOCOL_T1;

/// How often the card is connected to while another program keeps resetting it.
constexpr int kAttempts = 3;

/// A connection to a card that another program may be resetting: pcscd has no protocol for it just then.
template <class Connect>
long withProtocol(Connect connect)
{
    long result = connect();
    for (int i = 1; i < kAttempts && Edition::current().wantsRejoin(result); ++i)
        result = connect();
    return result;
}

template <std::size_t N>
void copyText(const std::string& text, CK_UTF8CHAR (&field)[N])
{
    std::copy_n(text.begin(), std::min(text.size(), N), field);
}

/// PC/SC counts insertions and removals in the upper half of a reader's state.
PCSCWord insertionOf(const ReaderState& state)
{
    return state.events >> 16;
}

} // namespace

PCSCSlot::PCSCSlot(PKCS11Wrapper* wrapper, PCSCSystem* system, const char* readerName)
    : Slot(wrapper), m_readerName(readerName), m_system(system)
{
    copyText(m_readerName, m_info.slotDescription);
    copyText(m_readerName, m_info.manufacturerID);
    m_info.flags = CKF_REMOVABLE_DEVICE | CKF_HW_SLOT;
    m_info.hardwareVersion = {0, 1};
    m_info.firmwareVersion = {0, 1};
    m_system->addReference();
}

PCSCSlot::~PCSCSlot()
{
    Logger::Log(Logger::kTrace, "........~PCSCSlot begin");
    Logger::Log(Logger::kTrace, "........~PCSCSlot end");
    // The token closes the channel, which must still exist, and has always told of it after the slot's end.
    deleteToken();
    m_system->release();
}

bool PCSCSlot::isTokenPresent()
{
    ReaderState state;
    if (!readState(state))
        throw PKCS11Exception(CKR_DEVICE_ERROR, "could not connect to reader (wrong READERNAME set?)",
                              "PCSCSlot::IsTokenPresent");
    return (state.events & SCARD_STATE_PRESENT) != 0;
}

Blob PCSCSlot::GetATR()
{
    ReaderState state;
    if (!readState(state) || (state.events & SCARD_STATE_PRESENT) == 0)
        return {};
    return state.atr;
}

bool PCSCSlot::readState(ReaderState& state)
{
    if (m_system->readState(m_readerName, state) != SCARD_S_SUCCESS)
        return false;
    m_seenInsertion = insertionOf(state);
    return true;
}

bool PCSCSlot::confirmCard()
{
    const bool wasExchanged = std::exchange(m_cardExchanged, true);
    ReaderState state;
    if (!readState(state) || insertionOf(state) != m_insertion)
        return false;
    m_cardExchanged = wasExchanged;
    return true;
}

CK_RV PCSCSlot::InitToken(CK_BYTE* /*pin*/, CK_ULONG /*pinLen*/, CK_BYTE* /*label*/)
{
    return CKR_OK;
}

bool PCSCSlot::CreateChannel()
{
    if (isConnected())
        return true;
    SCARDHANDLE card = 0;
    m_owesReset = m_owesReset && m_insertion == m_seenInsertion;
    m_insertion = m_seenInsertion;
    const long result = withProtocol([&] {
        return SCardConnect(m_system->GetContext(), m_readerName.c_str(), SCARD_SHARE_SHARED, kProtocols,
                            &card, &m_protocol);
    });
    if (result != SCARD_S_SUCCESS) {
        traceCode(result);
        throw PKCS11Exception(CKR_GENERAL_ERROR);
    }
    m_card = card;
    m_cardExchanged = false;
    return true;
}

bool PCSCSlot::CloseChannel()
{
    if (isConnected() && !m_system->isInherited()) {
        Edition::current().leaveCard(*this);
        const long result = SCardDisconnect(m_card, SCARD_LEAVE_CARD);
        traceCall("SCardDisconnect", result);
    }
    m_card = 0;
    return true;
}

void PCSCSlot::ResetChannel()
{
    constexpr char kWhere[] = "PCSCSlot::ResetChannel";
    if (!isConnected())
        throw PKCS11Exception(CKR_GENERAL_ERROR, "card not connected", kWhere);
    DWORD protocol = SCARD_PROTOCOL_UNDEFINED;
    const long result = SCardReconnect(m_card, SCARD_SHARE_SHARED, kProtocols, SCARD_RESET_CARD, &protocol);
    if (result != SCARD_S_SUCCESS) {
        Logger::Log(Logger::kTrace, "reset error:");
        traceCode(result);
        throw PKCS11Exception(CKR_GENERAL_ERROR, "reset error", kWhere);
    }
    m_protocol = protocol;
}

void PCSCSlot::forceReset()
{
    ++m_disturbances;
    m_owesReset = true;
    resetIfOwed();
}

void PCSCSlot::resetIfOwed()
{
    if (!m_owesReset)
        return;
    ResetChannel();
    confirmCard();
    m_owesReset = false;
}

long PCSCSlot::reconnect(PCSCWord action)
{
    return withProtocol([&] {
        DWORD protocol = SCARD_PROTOCOL_UNDEFINED;
        const long joined = SCardReconnect(m_card, SCARD_SHARE_SHARED, kProtocols, action, &protocol);
        if (joined == SCARD_S_SUCCESS && protocol == SCARD_PROTOCOL_UNDEFINED)
            return long{SCARD_E_PROTO_MISMATCH};
        if (joined == SCARD_S_SUCCESS)
            m_protocol = protocol;
        return joined;
    });
}

long PCSCSlot::RejoinChannel()
{
    long result = SCARD_W_RESET_CARD;
    bool isJoined = false;
    for (int i = 0; i < kAttempts && result == SCARD_W_RESET_CARD; ++i) {
        result = reconnect(SCARD_LEAVE_CARD);
        isJoined = isJoined || result == SCARD_S_SUCCESS || Edition::current().wantsRejoin(result);
        PCSCWord state = SCARD_POWERED;
        if (result == SCARD_S_SUCCESS)
            result = queryStatus(state);
        if (result == SCARD_S_SUCCESS && (state & SCARD_POWERED) == 0)
            result = reconnect(SCARD_RESET_CARD);
    }
    // Also where a later step failed or no protocol was had: the next call finds a joined card.
    const bool isExchanged = isJoined && !confirmCard();
    return isExchanged && result == SCARD_S_SUCCESS ? long{SCARD_W_REMOVED_CARD} : result;
}

long PCSCSlot::queryStatus(PCSCWord& state) const
{
    // Older PC/SC services insist on all the buffers.
    std::array<char, 10000> reader;
    std::array<unsigned char, 100> atr;
    DWORD readerLength = reader.size();
    DWORD atrLength = atr.size();
    DWORD protocol = 0;
    return SCardStatus(m_card, reader.data(), &readerLength, &state, &protocol, atr.data(), &atrLength);
}

long PCSCSlot::cardStatus()
{
    if (m_cardExchanged)
        return SCARD_W_REMOVED_CARD;
    PCSCWord state = 0;
    return Edition::current().judgeStatus(*this, queryStatus(state));
}

} // namespace PKCS11
