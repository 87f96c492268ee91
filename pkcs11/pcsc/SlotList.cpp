#include "pkcs11/pcsc/SlotList.h"

#include "pkcs11/Edition.h"
#include "pkcs11/PKCS11Exception.h"
#include "pkcs11/pcsc/SCardCall.h"
#include "pkcs11/pcsc/SlotWaits.h"

#include <algorithm>
#include <unistd.h>
#include <utility>
#include <vector>
#include <winscard.h>

namespace PKCS11 {
namespace {

constexpr char kWhere[] = "SlotList::waitForSlotEvent";

bool has(DWORD state, DWORD bits)
{
    return (state & bits) != 0;
}
bool gained(DWORD before, DWORD now, DWORD bit)
{
    return !has(before, bit) && has(now, bit);
}

/// Logs every event between the two states of a reader; true when there is one.
bool traceEvents(DWORD before, DWORD now)
{
    const struct {
        bool happened;
        const char* text;
    } events[] = {
        {has(before, SCARD_STATE_EMPTY) && has(now, SCARD_STATE_PRESENT),
         "SlotList::waitForSlotEvent -> smart card inserted!"},
        {has(before, SCARD_STATE_PRESENT) && has(now, SCARD_STATE_EMPTY),
         "SlotList::waitForSlotEvent -> smart card removed!"},
        {gained(now, before, SCARD_STATE_UNKNOWN) || gained(now, before, SCARD_STATE_UNAVAILABLE),
         "SlotList::waitForSlotEvent -> smart card reader attached!"},
        {gained(before, now, SCARD_STATE_UNKNOWN) || gained(before, now, SCARD_STATE_UNAVAILABLE),
         "SlotList::waitForSlotEvent -> smart card reader detached!"},
    };
    bool any = false;
    for (const auto& event : events) {
        if (event.happened)
            Logger::Log(Logger::kTrace, event.text);
        any = any || event.happened;
    }
    return any;
}

} // namespace

/// One PC/SC reader state per slot, in the order of the IDs.
struct SlotList::ReaderStates {
    explicit ReaderStates(const SlotList& list)
    {
        for (CK_SLOT_ID id = 1; id <= list.highWater(); ++id)
            names.push_back(list.getSlot(id)->getSlotDescription());
        for (const std::string& name : names) {
            Logger::Log(Logger::kTrace, name.c_str());
            SCARD_READERSTATE state{};
            state.szReader = name.c_str();
            states.push_back(state);
        }
    }
    long getStatusChange(PCSCContext context, DWORD timeout)
    {
        return SCardGetStatusChange(context, timeout, states.data(), states.size());
    }
    void makeCurrent()
    {
        for (SCARD_READERSTATE& state : states)
            state.dwCurrentState = state.dwEventState;
    }
    DWORD eventState(CK_SLOT_ID id) const { return states[id - 1].dwEventState; }

    std::vector<std::string> names;
    std::vector<SCARD_READERSTATE> states;
};

/// One wait and its context. Once the wait is abandoned, the list that it came from may be gone.
class SlotList::WaitContext {
public:
    explicit WaitContext(SlotList& list) : m_context(list.m_context.exchange(0))
    {
        if (m_context == 0 &&
            SCardEstablishContext(SCARD_SCOPE_USER, nullptr, nullptr, &m_context) != SCARD_S_SUCCESS)
            throw PKCS11Exception(CKR_FUNCTION_FAILED, "Cannot establish PCSC context!", kWhere);
        m_wait.setContext(m_context);
    }
    ~WaitContext() { release(); }
    WaitContext(const WaitContext&) = delete;
    WaitContext& operator=(const WaitContext&) = delete;

    /// The PC/SC result.
    long release()
    {
        m_wait.setContext(0);
        const PCSCContext context = std::exchange(m_context, 0);
        return context != 0 ? SCardReleaseContext(context) : SCARD_S_SUCCESS;
    }
    /// Leaves the context to the next wait.
    void giveBack(SlotList& list)
    {
        PCSCContext none = 0;
        if (list.m_context.compare_exchange_strong(none, m_context))
            m_context = 0;
    }
    PCSCContext context() const { return m_context; }
    bool isAbandoned() const { return m_wait.isAbandoned(); }

private:
    SlotWaits::Wait m_wait;
    PCSCContext m_context;
};

SlotList::SlotList() : m_process(getpid()) {}

SlotList::~SlotList()
{
    if (m_context != 0 && m_process == getpid())
        SCardReleaseContext(m_context);
    for (CK_SLOT_ID id = 1; id <= highWater(); ++id)
        const std::unique_ptr<Slot> slot(static_cast<Slot*>(delEntry(id)));
}

void SlotList::addSlot(std::unique_ptr<Slot> slot)
{
    putEntry(slot.get());
    static_cast<void>(slot.release());
}

void SlotList::getIDList(CK_BBOOL tokenPresent, CK_SLOT_ID* list, CK_ULONG* count)
{
    std::vector<CK_SLOT_ID> found;
    for (CK_SLOT_ID id = 1; id <= highWater(); ++id) {
        if (tokenPresent == CK_FALSE || getSlot(id)->isTokenPresent())
            found.push_back(id);
    }
    // The list of all slots is written whatever room the caller announces: deliberate.
    const bool tooShort = tokenPresent != CK_FALSE && list != nullptr && *count < found.size();
    *count = found.size();
    if (tooShort)
        throw PKCS11Exception(CKR_BUFFER_TOO_SMALL, "buffer too samll", "SlotList::getIdList");
    if (list != nullptr)
        std::copy(found.begin(), found.end(), list);
}

bool SlotList::waitForSlotEvent(CK_FLAGS flags, CK_SLOT_ID* slot, void* /*reserved*/)
{
    if (highWater() == 0)
        throw PKCS11Exception(CKR_NO_EVENT);

    WaitContext wait(*this);
    ReaderStates states(*this);
    long result = states.getStatusChange(wait.context(), 0);
    if (result != SCARD_S_SUCCESS) {
        traceCode(result);
        throw PKCS11Exception(CKR_FUNCTION_FAILED,
                              "SCardGetStatusChange failed with getting initial slot status!", kWhere);
    }

    const bool block = (flags & CKF_DONT_BLOCK) == 0;
    for (;;) {
        // The states still ask for the present state here, so the first call returns at once.
        const bool others = block && Edition::current().beginWait();
        result = states.getStatusChange(wait.context(), block ? INFINITE : 0);
        const bool goesOn = !others || Edition::current().endWait();
        if (result == SCARD_E_CANCELLED || !goesOn || wait.isAbandoned()) {
            Logger::Log(Logger::kTrace, "SCardGetStatusChange was canceled by application, so just return");
            return false;
        }
        if (result != SCARD_S_SUCCESS) {
            traceCode(wait.release());
            throw PKCS11Exception(CKR_FUNCTION_FAILED, "SCardGetStatusChange failed with catching slot event",
                                  kWhere);
        }
        refreshReported(states);
        const CK_SLOT_ID event = block ? findEvent(states) : findFlagged(states);
        if (event != 0) {
            *slot = event;
            return true;
        }
        if (!block) {
            wait.giveBack(*this);
            throw PKCS11Exception(CKR_NO_EVENT);
        }
    }
}

/// A reported slot learns its reader's state before the next comparison.
void SlotList::refreshReported(const ReaderStates& states)
{
    for (CK_SLOT_ID id = 1; id <= highWater(); ++id) {
        Slot& slot = *getSlot(id);
        if (slot.eventPending()) {
            slot.setEventPending(false);
            slot.setReaderState(states.eventState(id));
        }
    }
}

/// The first slot whose reader changed since the last look, or 0.
CK_SLOT_ID SlotList::findEvent(ReaderStates& states) const
{
    for (CK_SLOT_ID id = 1; id <= highWater(); ++id) {
        if (!has(states.eventState(id), SCARD_STATE_IGNORE | SCARD_STATE_CHANGED))
            continue;
        const bool event = traceEvents(states.states[id - 1].dwCurrentState, states.eventState(id));
        // Of all readers, also when this one had no event: the states of later ones count as seen.
        states.makeCurrent();
        if (event)
            return id;
    }
    return 0;
}

/// The first slot whose reader changed since its state was remembered, or 0. Later slots are not looked at,
/// so that their events are found by the next call.
CK_SLOT_ID SlotList::findFlagged(const ReaderStates& states)
{
    for (CK_SLOT_ID id = 1; id <= highWater(); ++id) {
        Slot& slot = *getSlot(id);
        const DWORD now = states.eventState(id);
        const DWORD before = slot.readerState();
        Logger::LogFormat(Logger::kTrace, "state :\t 0x%08x", static_cast<unsigned int>(now));
        Logger::LogFormat(Logger::kTrace, "prev_state :\t 0x%08x", static_cast<unsigned int>(before));
        if (traceEvents(before, now))
            slot.setEventPending(true);
        if (slot.eventPending())
            return id;
    }
    return 0;
}

void SlotList::stopWaitForSlotEvent()
{
    const PCSCContext idle = m_process == getpid() ? m_context.load() : 0;
    const bool cancelledIdle = idle != 0 && SCardCancel(idle) == SCARD_S_SUCCESS;
    if (SlotWaits::cancel() || cancelledIdle)
        Logger::Log(Logger::kTrace, "SlotList::stopWaitForSlotEvent: C_Finalize SCardCancel() succeed.");
    SlotWaits::awaitEnd();
}

} // namespace PKCS11
