#include "pkcs11/desktop/DesktopReaderStates.h"

#include "pkcs11/desktop/DesktopSlotList.h"
#include "pkcs11/desktop/DesktopSystem.h"
#include "pkcs11/pcsc/WaitContext.h"
#include "pkcs11/token/Sleep.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace PKCS11 {

namespace {

/// The reader name under which PC/SC tells that readers came or went.
constexpr char kNotification[] = R"(\\?PnP?\Notification)";
/// Milliseconds between two looks for a service that is not there: it does not tell when it comes.
constexpr long kServiceInterval = 50;

bool contains(const std::vector<std::string>& names, const std::string& name)
{
    return std::find(names.begin(), names.end(), name) != names.end();
}

} // namespace

DesktopReaderStates::DesktopReaderStates(std::vector<std::string> readers, std::set<std::string>& told)
    : ReaderStates(std::move(readers)), m_told(told), m_toldBefore(told)
{
}

long DesktopReaderStates::getStatusChange(WaitContext& wait, PCSCWord timeout)
{
    // A wait that has begun beside the end of the process is not abandoned itself.
    for (bool again = false; !wait.isAbandoned() && !SlotWaits::isEnding(); again = true) {
        if (again && timeout != 0)
            Sleep(kServiceInterval);
        if (!look(wait)) {
            if (markChanges() || timeout == 0)
                return SCARD_S_SUCCESS;
            continue;
        }
        const long result = askPCSC(wait, hasNews() ? 0 : timeout);
        if (result == SCARD_S_SUCCESS || result == SCARD_E_TIMEOUT) {
            markChanges();
            return SCARD_S_SUCCESS;
        }
        // A service that ends while a call waits for it gives codes of several kinds; the next look tells.
        const bool isServices =
            isContextLost(result) || result == SCARD_E_UNKNOWN_READER || result == SCARD_F_COMM_ERROR;
        if (result == SCARD_E_CANCELLED || (again && (!isServices || timeout == 0)))
            return result;
        if (result != SCARD_E_UNKNOWN_READER)
            wait.release();
    }
    return SCARD_E_CANCELLED;
}

bool DesktopReaderStates::look(WaitContext& wait)
{
    m_present.clear();
    const bool hasService =
        wait.establish() == SCARD_S_SUCCESS && !isContextLost(queryReaders(wait.context(), m_present));
    if (!hasService)
        wait.release();
    for (auto told = m_toldBefore.begin(); told != m_toldBefore.end();)
        told = contains(m_present, *told) ? std::next(told) : m_toldBefore.erase(told);
    return hasService;
}

bool DesktopReaderStates::isPresent(std::size_t index) const
{
    return contains(m_present, m_readers[index]);
}

SCARD_READERSTATE& DesktopReaderStates::stateOf(const std::string& name)
{
    const auto slot = std::find(m_readers.begin(), m_readers.end(), name);
    return slot != m_readers.end() ? m_states[slot - m_readers.begin()] : m_others[name];
}

long DesktopReaderStates::askPCSC(WaitContext& wait, PCSCWord timeout)
{
    std::vector<SCARD_READERSTATE> asked;
    for (const std::string& name : m_present) {
        SCARD_READERSTATE state{};
        state.szReader = name.c_str();
        state.dwCurrentState = stateOf(name).dwCurrentState;
        asked.push_back(state);
    }
    if (asked.size() < PCSCLITE_MAX_READERS_CONTEXTS) { // otherwise no other reader can come
        SCARD_READERSTATE notification{};
        notification.szReader = kNotification;
        notification.dwCurrentState = m_present.size() << 16;
        asked.push_back(notification);
    }
    const long result = SCardGetStatusChange(wait.context(), timeout, asked.data(), asked.size());
    if (result == SCARD_S_SUCCESS || result == SCARD_E_TIMEOUT) {
        for (std::size_t i = 0; i < m_present.size(); ++i)
            stateOf(m_present[i]).dwEventState = asked[i].dwEventState;
    }
    return result;
}

bool DesktopReaderStates::hasNews() const
{
    for (std::size_t i = 0; i < m_readers.size(); ++i) {
        const PCSCWord before = m_states[i].dwCurrentState;
        const bool wasUnknown = (before & SCARD_STATE_UNKNOWN) != 0;
        if (before != SCARD_STATE_UNAWARE && wasUnknown == isPresent(i))
            return true;
    }
    return std::any_of(m_present.begin(), m_present.end(), [&](auto& name) { return isNews(name); });
}

bool DesktopReaderStates::markChanges()
{
    bool any = false;
    for (std::size_t i = 0; i < m_readers.size(); ++i) {
        SCARD_READERSTATE& state = m_states[i];
        if (!isPresent(i)) {
            state.dwEventState = SCARD_STATE_UNKNOWN;
            if (state.dwCurrentState == SCARD_STATE_UNAWARE)
                state.dwCurrentState = SCARD_STATE_UNKNOWN;
        }
        if (((state.dwCurrentState ^ state.dwEventState) & SCARD_STATE_UNKNOWN) != 0)
            state.dwEventState |= SCARD_STATE_CHANGED;
        any = any || (state.dwEventState & SCARD_STATE_CHANGED) != 0;
    }
    for (auto& [name, state] : m_others) {
        const PCSCWord before = std::exchange(state.dwCurrentState, state.dwEventState);
        if (before != SCARD_STATE_UNAWARE && ((before ^ state.dwEventState) & SCARD_STATE_PRESENT) != 0)
            m_changed.insert(name);
    }
    return any;
}

bool DesktopReaderStates::isNews(const std::string& name) const
{
    return !contains(m_readers, name) && (m_toldBefore.count(name) == 0 || m_changed.count(name) != 0);
}

CK_SLOT_ID DesktopReaderStates::attachedSlot(const SlotList& slots)
{
    CK_SLOT_ID last = slots.highWater();
    std::set<std::string> told;
    CK_SLOT_ID news = 0;
    for (const std::string& name : m_present) {
        const CK_SLOT_ID known = slotOf(slots, name);
        const CK_SLOT_ID id = known != 0 ? known : ++last; // slots are given in the order of PC/SC's list
        if (news == 0 && isNews(name))
            news = id;
        if (news == id || m_told.count(name) != 0)
            told.insert(name);
    }
    m_told = told; // one that has gone is news when it is back
    return news;
}

} // namespace PKCS11
