#include "pkcs11/desktop/DesktopReaderStates.h"

#include "pkcs11/desktop/DesktopSlotList.h"
#include "pkcs11/desktop/DesktopSystem.h"
#include "pkcs11/pcsc/WaitContext.h"
#include "pkcs11/token/Sleep.h"

#include <algorithm>
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

DesktopReaderStates::DesktopReaderStates(std::vector<std::string> readers) : ReaderStates(std::move(readers))
{
    SCARD_READERSTATE notification{};
    notification.szReader = kNotification;
    m_states.push_back(notification);
}

long DesktopReaderStates::getStatusChange(WaitContext& wait, PCSCWord timeout)
{
    // A wait that has begun beside the end of the process is not abandoned itself.
    for (bool again = false; !wait.isAbandoned() && !SlotWaits::isEnding(); again = true) {
        if (again && timeout != 0)
            Sleep(kServiceInterval);
        const bool hasService = look(wait);
        const bool hasReturned = addressPresent();
        if (!hasService) {
            if (markChanges() || timeout == 0)
                return SCARD_S_SUCCESS;
            continue;
        }
        const bool hasNews = hasReturned || std::any_of(m_present.begin(), m_present.end(),
                                                        [&](auto& name) { return isNew(name); });
        const long result =
            SCardGetStatusChange(wait.context(), hasNews ? 0 : timeout, m_states.data(), m_states.size());
        if (result == SCARD_S_SUCCESS || result == SCARD_E_TIMEOUT) {
            markChanges();
            return SCARD_S_SUCCESS;
        }
        // A service that ends while a call waits for it gives codes of several kinds; the next look tells.
        const bool mayPass = !again || isContextLost(result) || result == SCARD_E_UNKNOWN_READER;
        if (result == SCARD_E_CANCELLED || !mayPass || (again && timeout == 0))
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
    if (!m_atBegin)
        m_atBegin = m_present;
    return hasService;
}

bool DesktopReaderStates::isPresent(std::size_t index) const
{
    return contains(m_present, m_readers[index]);
}

bool DesktopReaderStates::addressPresent()
{
    bool hasReturned = false;
    for (std::size_t i = 0; i < m_readers.size(); ++i) {
        SCARD_READERSTATE& state = m_states[i];
        state.szReader = isPresent(i) ? m_readers[i].c_str() : kNotification;
        if (isPresent(i))
            hasReturned = hasReturned || (state.dwCurrentState & SCARD_STATE_UNKNOWN) != 0;
        else if (state.dwCurrentState == SCARD_STATE_UNAWARE)
            state.dwCurrentState = SCARD_STATE_UNKNOWN;
    }
    m_states.back().dwCurrentState = m_present.size() << 16;
    return hasReturned;
}

bool DesktopReaderStates::markChanges()
{
    bool any = false;
    for (std::size_t i = 0; i < m_readers.size(); ++i) {
        SCARD_READERSTATE& state = m_states[i];
        if (!isPresent(i))
            state.dwEventState = SCARD_STATE_UNKNOWN;
        if (((state.dwCurrentState ^ state.dwEventState) & SCARD_STATE_UNKNOWN) != 0)
            state.dwEventState |= SCARD_STATE_CHANGED;
        any = any || (state.dwEventState & SCARD_STATE_CHANGED) != 0;
    }
    return any;
}

bool DesktopReaderStates::isNew(const std::string& name) const
{
    return !contains(*m_atBegin, name) && !contains(m_readers, name);
}

CK_SLOT_ID DesktopReaderStates::attachedSlot(const SlotList& slots) const
{
    CK_SLOT_ID last = slots.highWater();
    for (const std::string& name : m_present) {
        const CK_SLOT_ID known = slotOf(slots, name);
        const CK_SLOT_ID id = known != 0 ? known : ++last; // slots are given in the order of PC/SC's list
        if (isNew(name))
            return id;
    }
    return 0;
}

} // namespace PKCS11
