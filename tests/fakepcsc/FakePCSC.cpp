#include "tests/fakepcsc/FakePCSC.h"

#include <algorithm>
#include <condition_variable>
#include <cstring>
#include <functional>
#include <list>
#include <map>
#include <mutex>
#include <sys/eventfd.h>
#include <unistd.h>
#include <utility>
#include <winscard.h>

namespace fakepcsc {
namespace {

/// `events` counts insertions and removals; the service reports it in the upper half of the event state.
struct Reader {
    std::string name;
    std::shared_ptr<vcard::Card> card;
    bool t0 = false, attached = true, forgotten = false;
    DWORD events = 0;
    int resets = 0;
    SCARDHANDLE transaction = 0; ///< the handle that has the reader to itself

    DWORD protocol() const { return t0 ? SCARD_PROTOCOL_T0 : SCARD_PROTOCOL_T1; }
    DWORD state() const
    {
        return !attached ? SCARD_STATE_UNKNOWN : card ? SCARD_STATE_PRESENT : SCARD_STATE_EMPTY;
    }
};
/// A wait blocks in a descriptor of its own, as with the real service: a signal handler that interrupts it
/// may call whatever it likes.
struct Context {
    bool waiting = false, cancelled = false, lost = false;
    int wake = -1;
};
/// A connected card: `then` is what the reader looked like.
struct Handle {
    SCARDCONTEXT context = 0;
    Reader* reader = nullptr;
    Reader then;
};
/// A result or an answer for `times` calls to come, after `skip` others.
struct Plan {
    std::string name;
    LONG result;
    Bytes answer;
    int skip, times;
    std::function<void()> action = nullptr; ///< in place of the result
};
struct Service {
    std::list<Reader> readers;
    std::map<SCARDCONTEXT, Context> contexts;
    std::map<SCARDHANDLE, Handle> handles;
    std::vector<Call> calls;
    std::list<Plan> plans;
    bool runs = true;

    DWORD attached() const
    {
        return std::count_if(readers.begin(), readers.end(), [](auto& reader) { return reader.attached; });
    }
};

/// Never destroyed: the library's last calls come while the process exits.
Service& s = *new Service;
std::mutex& mutex = *new std::mutex;
std::condition_variable& changed = *new std::condition_variable;
long lastId = 0x1000;

struct Unlocked {
    Unlocked() { mutex.unlock(); }
    ~Unlocked() { mutex.lock(); }
};
void wakeAll()
{
    changed.notify_all();
    for (const auto& context : s.contexts)
        if (context.second.waiting)
            eventfd_write(context.second.wake, 1);
}
template <class Action>
auto locked(Action action)
{
    const std::lock_guard<std::mutex> lock(mutex);
    wakeAll();
    return action();
}
void change(int reader, const std::function<void(Reader&)>& action)
{
    locked([&] { action(*std::next(s.readers.begin(), reader)); });
}

/// Counts one call for every plan of that name; of several that are due the first one is taken.
bool due(const std::string& name, Plan& out)
{
    Plan* found = nullptr;
    for (Plan& plan : s.plans)
        if (!plan.action && (plan.name == name || (plan.name.empty() && name != "answer")) &&
            plan.times > 0 && plan.skip-- <= 0)
            found = found == nullptr ? &plan : found;
    if (found == nullptr)
        return false;
    out = *found;
    --found->times;
    return true;
}
/// Runs what the test wants to happen before this call.
void actBefore(const std::string& name)
{
    std::vector<std::function<void()>> actions;
    locked([&] {
        for (Plan& plan : s.plans)
            if (plan.action && plan.times > 0 && (plan.name.empty() || plan.name == name) &&
                plan.skip-- <= 0) {
                actions.push_back(plan.action);
                plan.times = 0;
            }
    });
    for (const auto& action : actions)
        action();
}
/// Runs the body of an SCard function, unless the call is meant to fail, and records it.
LONG call(const char* name, const std::function<LONG(Call&)>& body, const Bytes& command = {})
{
    actBefore(name);
    return locked([&] {
        Plan plan{};
        Call record{name, 0, command, {}};
        record.result = due(name, plan) ? plan.result : body(record);
        s.calls.push_back(record);
        return record.result;
    });
}

/// A context takes no second call while it waits; the real client library would block here.
LONG check(SCARDCONTEXT context)
{
    const auto it = s.contexts.find(context);
    return it == s.contexts.end() ? SCARD_E_INVALID_HANDLE
           : it->second.lost      ? SCARD_E_NO_SERVICE
           : it->second.waiting   ? SCARD_F_INTERNAL_ERROR
                                  : 0;
}
LONG checkHandle(SCARDHANDLE handle)
{
    const auto it = s.handles.find(handle);
    if (it == s.handles.end() || s.contexts.count(it->second.context) == 0)
        return SCARD_E_INVALID_HANDLE;
    if (s.contexts[it->second.context].lost)
        return SCARD_E_NO_SERVICE;
    const Reader& now = *it->second.reader;
    return it->second.then.events != now.events   ? SCARD_W_REMOVED_CARD
           : it->second.then.resets != now.resets ? SCARD_W_RESET_CARD
                                                  : 0;
}
bool isLost(LONG rc)
{
    return rc == SCARD_E_INVALID_HANDLE || rc == SCARD_E_NO_SERVICE;
}
/// Those of handles whose context is gone.
void endTransactions()
{
    for (Reader& reader : s.readers)
        if (isLost(checkHandle(reader.transaction)))
            reader.transaction = 0;
}
LONG connect(Handle& handle, DWORD protocols, DWORD* active)
{
    if (!handle.reader->card)
        return SCARD_E_NO_SMARTCARD;
    handle.then = *handle.reader;
    *active = handle.then.protocol();
    return (protocols & *active) != 0 ? SCARD_S_SUCCESS : SCARD_E_PROTO_MISMATCH;
}
Reader* find(const char* name)
{
    const auto it =
        std::find_if(s.readers.begin(), s.readers.end(), [&](Reader& r) { return r.name == name; });
    return it == s.readers.end() ? nullptr : &*it;
}
bool isNotification(const char* name)
{
    return std::strcmp(name, R"(\\?PnP?\Notification)") == 0;
}
/// Fills the event states; true when the call has something to report. The call began with so many readers.
bool refresh(SCARD_READERSTATE* states, DWORD count, DWORD readers)
{
    bool report = false;
    for (SCARD_READERSTATE* state = states; state != states + count; ++state) {
        if (isNotification(state->szReader)) {
            state->dwEventState = s.attached() != readers ? SCARD_STATE_CHANGED : 0;
            report = report || state->dwEventState != 0;
            continue;
        }
        const Reader& reader = *find(state->szReader);
        const Bytes atr = reader.card ? reader.card->atr() : Bytes();
        const DWORD before = state->dwCurrentState;
        // A reader that came back is no news, nor is one that had no card then.
        const bool news = (before & (reader.state() | SCARD_STATE_UNKNOWN)) == 0 ||
                          (!reader.attached && (before & SCARD_STATE_UNKNOWN) == 0) ||
                          (before >> 16 != 0 && before >> 16 != reader.events);
        state->dwEventState = reader.events << 16 | reader.state() | (news ? SCARD_STATE_CHANGED : 0);
        state->cbAtr = std::min<DWORD>(atr.size(), MAX_ATR_SIZE);
        std::copy_n(atr.begin(), state->cbAtr, state->rgbAtr);
        report = report || news;
    }
    return report;
}

} // namespace

void reset()
{
    locked([] { s = Service(); });
}
int addReader(const std::string& name)
{
    return locked([&] {
        s.readers.emplace_back().name = name;
        return static_cast<int>(s.readers.size()) - 1;
    });
}
void detachReader(int reader)
{
    removeCard(reader);
    change(reader, [](Reader& r) { r.attached = false; });
}
void forgetReader(int reader)
{
    change(reader, [](Reader& r) { r.forgotten = true; });
    detachReader(reader);
}
void attachReader(int reader)
{
    change(reader, [](Reader& r) { r.attached = true, r.forgotten = false; });
}
void stopService()
{
    locked([] {
        s.runs = false;
        for (auto& context : s.contexts)
            context.second.lost = true;
        endTransactions();
    });
}
void startService()
{
    locked([] { s.runs = true; });
}
void insertCard(int reader, std::shared_ptr<vcard::Card> card, bool t0)
{
    card->reset();
    change(reader,
           [&](Reader& r) { r = {r.name, card, t0, true, false, r.events + 1, r.resets, r.transaction}; });
}
void removeCard(int reader)
{
    change(reader, [](Reader& r) {
        r = {r.name, nullptr, false, true, r.forgotten, r.events + 1, r.resets, r.transaction};
    });
}
void resetCard(int reader)
{
    change(reader, [](Reader& r) { r.card->reset(), ++r.resets; });
}
std::vector<Call> calls()
{
    return locked([] { return s.calls; });
}
void clearCalls()
{
    locked([] { s.calls.clear(); });
}
std::vector<std::string> sentAPDUs()
{
    std::vector<std::string> texts;
    for (const Call& one : calls()) {
        if (one.name == "SCardTransmit")
            texts.emplace_back();
        for (const unsigned char byte : one.command)
            texts.back().append(1, "0123456789ABCDEF"[byte >> 4]).append(1, "0123456789ABCDEF"[byte & 15]);
    }
    return texts;
}
int callCount(const std::string& name)
{
    const std::vector<Call> all = calls();
    return static_cast<int>(
        std::count_if(all.begin(), all.end(), [&](auto& one) { return one.name == name; }));
}
void failCall(const std::string& name, long result, int nth, int times)
{
    locked([&] { s.plans.push_back({name, result, {}, nth - 1, times}); });
}
void beforeCall(const std::string& name, int nth, std::function<void()> action)
{
    locked([&] { s.plans.push_back({name, 0, {}, nth - 1, 1, std::move(action)}); });
}
void forgetPlans()
{
    locked([] { s.plans.clear(); });
}
void replaceAnswer(const Bytes& answer, int nth)
{
    locked([&] { s.plans.push_back({"answer", 0, answer, nth - 1, 1}); });
}
void awaitBlockedWaits(int count, const std::function<void()>& action)
{
    std::unique_lock<std::mutex> lock(mutex);
    const auto waits = [](auto& context) { return context.second.waiting; };
    changed.wait(lock, [&] { return std::count_if(s.contexts.begin(), s.contexts.end(), waits) >= count; });
    action();
}
int openContexts()
{
    return locked([] { return static_cast<int>(s.contexts.size()); });
}
int openHandles()
{
    return locked([] { return static_cast<int>(s.handles.size()); });
}

} // namespace fakepcsc

using namespace fakepcsc;

const SCARD_IO_REQUEST g_rgSCardT0Pci = {SCARD_PROTOCOL_T0, sizeof(SCARD_IO_REQUEST)};
const SCARD_IO_REQUEST g_rgSCardT1Pci = {SCARD_PROTOCOL_T1, sizeof(SCARD_IO_REQUEST)};
const SCARD_IO_REQUEST g_rgSCardRawPci = {SCARD_PROTOCOL_RAW, sizeof(SCARD_IO_REQUEST)};

LONG SCardEstablishContext(DWORD, LPCVOID, LPCVOID, LPSCARDCONTEXT context)
{
    return call("SCardEstablishContext", [&](Call&) {
        if (!s.runs)
            return SCARD_E_NO_SERVICE;
        s.contexts[*context = ++lastId] = {};
        return SCARD_S_SUCCESS;
    });
}
LONG SCardReleaseContext(SCARDCONTEXT context)
{
    // Handles of the context stay on the list, so that a leak shows.
    return call("SCardReleaseContext", [&](Call&) {
        const LONG rc = check(context);
        if (rc == 0 || rc == SCARD_E_NO_SERVICE) {
            s.contexts.erase(context);
            endTransactions();
        }
        return rc;
    });
}
LONG SCardIsValidContext(SCARDCONTEXT context)
{
    return call("SCardIsValidContext", [&](Call&) { return check(context); });
}
LONG SCardListReaders(SCARDCONTEXT context, LPCSTR, LPSTR names, LPDWORD length)
{
    return call("SCardListReaders", [&](Call&) {
        std::string list;
        for (const Reader& reader : s.readers)
            list += reader.attached ? reader.name + '\0' : "";
        if (check(context) != 0 || list.empty())
            return check(context) != 0 ? check(context) : SCARD_E_NO_READERS_AVAILABLE;
        const DWORD room = std::exchange(*length, list.size() + 1);
        if (room < *length)
            return SCARD_E_INSUFFICIENT_BUFFER;
        std::memcpy(names, list.c_str(), *length);
        return SCARD_S_SUCCESS;
    });
}
LONG SCardConnect(SCARDCONTEXT context, LPCSTR name, DWORD, DWORD protocols, LPSCARDHANDLE handle,
                  LPDWORD active)
{
    return call("SCardConnect", [&](Call&) {
        Handle fresh{context, find(name), {}};
        if (check(context) != 0 || fresh.reader == nullptr || !fresh.reader->attached)
            return check(context) != 0 ? check(context) : SCARD_E_UNKNOWN_READER;
        const LONG rc = connect(fresh, protocols, active);
        if (rc == 0)
            s.handles[*handle = ++lastId] = fresh;
        return rc;
    });
}
LONG SCardReconnect(SCARDHANDLE handle, DWORD, DWORD protocols, DWORD action, LPDWORD active)
{
    return call("SCardReconnect", [&](Call&) {
        if (checkHandle(handle) == SCARD_E_INVALID_HANDLE)
            return SCARD_E_INVALID_HANDLE;
        Reader& reader = *s.handles[handle].reader;
        if (action == SCARD_RESET_CARD && reader.card)
            reader.card->reset(), ++reader.resets;
        return connect(s.handles[handle], protocols, active);
    });
}
LONG SCardDisconnect(SCARDHANDLE handle, DWORD disposition)
{
    return call("SCardDisconnect", [&](Call&) {
        if (disposition != SCARD_LEAVE_CARD)
            return SCARD_E_INVALID_VALUE; // the library never resets a card that others share
        for (Reader& reader : s.readers)
            reader.transaction = reader.transaction == handle ? 0 : reader.transaction;
        return s.handles.erase(handle) != 0 ? SCARD_S_SUCCESS : SCARD_E_INVALID_HANDLE;
    });
}
LONG SCardBeginTransaction(SCARDHANDLE handle)
{
    return call("SCardBeginTransaction", [&](Call&) {
        if (checkHandle(handle) != 0)
            return checkHandle(handle);
        SCARDHANDLE& owner = s.handles[handle].reader->transaction;
        std::unique_lock<std::mutex> lock(mutex, std::adopt_lock);
        changed.wait(lock, [&] { return owner == 0 || owner == handle; });
        lock.release();
        owner = handle;
        return checkHandle(handle);
    });
}
LONG SCardEndTransaction(SCARDHANDLE handle, DWORD disposition)
{
    return call("SCardEndTransaction", [&](Call&) {
        if (checkHandle(handle) == SCARD_E_INVALID_HANDLE || disposition != SCARD_LEAVE_CARD)
            return SCARD_E_INVALID_VALUE;
        SCARDHANDLE& owner = s.handles[handle].reader->transaction;
        if (owner != handle)
            return SCARD_E_NOT_TRANSACTED;
        owner = 0;
        return SCARD_S_SUCCESS;
    });
}
LONG SCardStatus(SCARDHANDLE handle, LPSTR, LPDWORD, LPDWORD, LPDWORD, LPBYTE, LPDWORD)
{
    return call("SCardStatus", [&](Call&) { return checkHandle(handle); });
}
LONG SCardGetStatusChange(SCARDCONTEXT context, DWORD timeout, SCARD_READERSTATE* states, DWORD count)
{
    return call("SCardGetStatusChange", [&](Call&) {
        if (check(context) != 0)
            return check(context);
        const auto isUnknown = [](const SCARD_READERSTATE& state) {
            const Reader* reader = find(state.szReader);
            return !isNotification(state.szReader) && (reader == nullptr || reader->forgotten);
        };
        if (std::any_of(states, states + count, isUnknown))
            return SCARD_E_UNKNOWN_READER;
        const DWORD readers = s.attached();
        if (refresh(states, count, readers))
            return SCARD_S_SUCCESS;
        if (timeout == 0)
            return SCARD_E_TIMEOUT;
        // A cancel that came before this is lost, as in the real service.
        Context& own = s.contexts[context] = {true, false, false, eventfd(0, EFD_CLOEXEC)};
        wakeAll();
        while (!own.cancelled && !own.lost && !refresh(states, count, readers)) {
            const Unlocked unlocked;
            eventfd_t changes = 0;
            eventfd_read(own.wake, &changes);
        }
        close(own.wake);
        own.waiting = false;
        return own.lost ? SCARD_E_NO_SERVICE : own.cancelled ? SCARD_E_CANCELLED : SCARD_S_SUCCESS;
    });
}
LONG SCardCancel(SCARDCONTEXT context)
{
    return call("SCardCancel", [&](Call&) {
        if (s.contexts.count(context) == 0)
            return SCARD_E_INVALID_HANDLE;
        s.contexts[context].cancelled = true;
        wakeAll();
        return SCARD_S_SUCCESS;
    });
}
LONG SCardTransmit(SCARDHANDLE handle, const SCARD_IO_REQUEST* pci, LPCBYTE command, DWORD length,
                   SCARD_IO_REQUEST*, LPBYTE answer, LPDWORD answerLength)
{
    return call(
        "SCardTransmit",
        [&](Call& record) {
            if (checkHandle(handle) != 0 || length < 4)
                return checkHandle(handle) != 0 ? checkHandle(handle) : SCARD_E_INVALID_PARAMETER;
            const Handle connected = s.handles[handle];
            const SCARDHANDLE owner = connected.reader->transaction;
            if (owner != 0 && owner != handle)
                return SCARD_E_SHARING_VIOLATION;
            if (pci->dwProtocol != connected.then.protocol())
                return SCARD_E_PROTO_MISMATCH;
            Plan plan{};
            if (!due("answer", plan)) {
                const Unlocked unlocked; // a card may pull itself out of the reader
                plan.answer = connected.then.card->transmit(record.command);
            }
            record.answer = plan.answer;
            if (record.answer.size() > *answerLength)
                return SCARD_E_INSUFFICIENT_BUFFER;
            std::copy(record.answer.begin(), record.answer.end(), answer);
            *answerLength = record.answer.size();
            return SCARD_S_SUCCESS;
        },
        Bytes(command, command + length));
}
