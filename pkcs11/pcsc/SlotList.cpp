#include "pkcs11/pcsc/SlotList.h"

#include "pkcs11/Edition.h"
#include "pkcs11/PKCS11Exception.h"
#include "pkcs11/pcsc/ReaderStates.h"
#include "pkcs11/pcsc/SCardCall.h"
#include "pkcs11/pcsc/WaitContext.h"

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

} // namespace

SlotList::SlotList() : m_process(getpid()) {}

SlotList::~SlotList()
{
    if (m_context != 0 && m_process == getpid())
        SCardReleaseContext(m_context);
}

void SlotList::getIDList(CK_BBOOL tokenPresent, CK_SLOT_ID* list, CK_ULONG* count)
{
    std::vector<CK_SLOT_ID> found;
    for (CK_SLOT_ID id = 1; id <= highWater(); ++id) {
        if (tokenPresent == CK_FALSE || getSlot(id)->isTokenPresent())
            found.push_back(id);
    }
    // The list of all slots is written whatever room the caller announces, deliberately, if it never grows.
    const bool isBounded = tokenPresent != CK_FALSE || waitsForReaders();
    const bool tooShort = isBounded && list != nullptr && *count < found.size();
    *count = found.size();
    if (tooShort) // "samll" as the trace has always spelled it
        throw PKCS11Exception(CKR_BUFFER_TOO_SMALL, "buffer too samll", "SlotList::getIdList");
    if (list != nullptr)
        std::copy(found.begin(), found.end(), list);
}

std::unique_ptr<ReaderStates> SlotList::readerStates()
{
    std::vector<std::string> readers;
    for (CK_SLOT_ID id = 1; id <= highWater(); ++id) {
        readers.push_back(getSlot(id)->getSlotDescription());
        Logger::Log(Logger::kTrace, readers.back().c_str());
    }
    return std::make_unique<ReaderStates>(std::move(readers));
}

bool SlotList::waitForSlotEvent(CK_FLAGS flags, CK_SLOT_ID* slot, void* /*reserved*/)
{
    if (highWater() == 0 && !waitsForReaders())
        throw PKCS11Exception(CKR_NO_EVENT);

    WaitContext wait(m_context);
    if (wait.establish() != SCARD_S_SUCCESS && !waitsForReaders())
        throw PKCS11Exception(CKR_FUNCTION_FAILED, "Cannot establish PCSC context!", kWhere);
    const std::unique_ptr<ReaderStates> held = readerStates();
    ReaderStates& states = *held;
    long result = states.getStatusChange(wait, 0);
    if (result != SCARD_S_SUCCESS) {
        traceCode(result);
        throw PKCS11Exception(CKR_FUNCTION_FAILED,
                              "SCardGetStatusChange failed with getting initial slot status!", kWhere);
    }

    const bool block = (flags & CKF_DONT_BLOCK) == 0;
    for (;;) {
        // The states still ask for the present state here, so the first call returns at once.
        const bool others = block && Edition::current().beginWait();
        result = states.getStatusChange(wait, block ? INFINITE : 0);
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
        if (const CK_SLOT_ID event = findEvent(states, block)) {
            *slot = event;
            return true;
        }
        if (!block) {
            wait.giveBack(m_context);
            throw PKCS11Exception(CKR_NO_EVENT);
        }
    }
}

/// A reported slot learns its reader's state before the next comparison.
void SlotList::refreshReported(const ReaderStates& states)
{
    for (CK_SLOT_ID id = 1; id <= states.count(); ++id) {
        Slot& slot = *getSlot(id);
        if (slot.eventPending()) {
            slot.setEventPending(false);
            slot.setReaderState(states.eventState(id));
        }
    }
}

CK_SLOT_ID SlotList::findEvent(ReaderStates& states, bool block)
{
    return block ? findChanged(states) : findFlagged(states);
}

CK_SLOT_ID SlotList::findChanged(ReaderStates& states) const
{
    for (CK_SLOT_ID id = 1; id <= states.count(); ++id) {
        if (!has(states.eventState(id), SCARD_STATE_IGNORE | SCARD_STATE_CHANGED))
            continue;
        const bool event = isEvent(states.currentState(id), states.eventState(id));
        // Those of all readers, also when this one had no event: a later one's change counts as seen.
        states.makeCurrent();
        if (event)
            return id;
    }
    return 0;
}

CK_SLOT_ID SlotList::findFlagged(const ReaderStates& states) const
{
    for (CK_SLOT_ID id = 1; id <= states.count(); ++id) {
        Slot& slot = *getSlot(id);
        const DWORD now = states.eventState(id);
        const DWORD before = slot.readerState();
        Logger::LogFormat(Logger::kTrace, "state :\t 0x%08x", static_cast<unsigned int>(now));
        Logger::LogFormat(Logger::kTrace, "prev_state :\t 0x%08x", static_cast<unsigned int>(before));
        if (isEvent(before, now))
            slot.setEventPending(true);
        if (slot.eventPending())
            return id;
    }
    return 0;
}

bool SlotList::isEvent(PCSCWord before, PCSCWord now) const
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

void SlotList::stopWaitForSlotEvent()
{
    const PCSCContext idle = m_process == getpid() ? m_context.load() : 0;
    const bool cancelledIdle = idle != 0 && SCardCancel(idle) == SCARD_S_SUCCESS;
    if (SlotWaits::cancel() || cancelledIdle)
        Logger::Log(Logger::kTrace, "SlotList::stopWaitForSlotEvent: C_Finalize SCardCancel() succeed.");
    SlotWaits::awaitEnd();
}

} // namespace PKCS11
