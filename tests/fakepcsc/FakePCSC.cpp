// All functions share one state and one lock, so they stand in one file.
#include "tests/fakepcsc/FakePCSC.h"

#include "tests/support/ScarceMemory.h"
#include "tools/vcard/Bytes.h"
#include "tools/vcard/IsoCard.h"

#include <algorithm>
#include <condition_variable>
#include <cstring>
#include <list>
#include <map>
#include <mutex>
#include <optional>
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
    bool attached = true, forgotten = false, hasProtocol = true, powered = true;
    DWORD events = 0;
    int changes = 0;
    LONG lastChange = 0;         ///< all that a handle of before tells, as with the real service
    SCARDHANDLE transaction = 0; ///< the handle that has the reader to itself
    int begun = 0;               ///< how often it has begun the transaction, which ends as often

    DWORD protocol() const { return vcard::isT0(card->atr()) ? SCARD_PROTOCOL_T0 : SCARD_PROTOCOL_T1; }
    DWORD state() const
    {
        return !attached ? SCARD_STATE_UNKNOWN : card ? SCARD_STATE_PRESENT : SCARD_STATE_EMPTY;
    }
    void take(std::shared_ptr<vcard::Card> fresh)
    {
        card = std::move(fresh), powered = true, ++events, ++changes, lastChange = SCARD_W_REMOVED_CARD,
        transaction = 0;
    }
    void resetCard(bool isOn = true)
    {
        card->reset(), powered = isOn, ++changes, lastChange = SCARD_W_RESET_CARD;
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
/// A result, an answer or an action for `times` calls to come, after `skip` others.
struct Plan {
    std::string name;
    int skip, times;
    LONG result = 0;
    Bytes answer = {};
    std::function<void()> action = nullptr;
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
/// What the body of a function throws in place of its result.
struct Refusal {
    LONG result;
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
    struct WakeAtEnd {
        ~WakeAtEnd() { wakeAll(); }
    };
    const scarce::Plenty plenty;
    const std::lock_guard<std::mutex> lock(mutex);
    const WakeAtEnd wake; // an action may let others in before it changes anything
    return action();
}
template <class Action>
void change(int reader, Action action)
{
    locked([&] { action(*std::next(s.readers.begin(), reader)); });
}

/// Counts one call for every plan of that name, does what is meant to happen before it, and takes the first
/// result or answer that is due.
std::optional<Plan> due(const std::string& name)
{
    std::optional<Plan> found;
    std::vector<std::function<void()>> actions;
    for (Plan& plan : s.plans) {
        const bool isMeant = plan.name == name || (plan.name.empty() && name != "answer");
        if (!isMeant || plan.times == 0 || plan.skip-- > 0 || (!plan.action && found))
            continue;
        --plan.times;
        if (plan.action)
            actions.push_back(plan.action);
        else
            found = plan;
    }
    const Unlocked unlocked;
    for (const auto& action : actions)
        action();
    return found;
}
/// Runs the body of an SCard function, unless the call is meant to fail, and records it.
template <class Body>
LONG call(const char* name, Body body, const Bytes& command = {})
{
    return locked([&] {
        LONG result = 0;
        try {
            const std::optional<Plan> plan = due(name);
            if (plan)
                result = plan->result;
            else
                body();
        } catch (const Refusal& refusal) {
            result = refusal.result;
        }
        s.calls.push_back({name, result, command});
        return result;
    });
}

void refuse(bool condition, LONG result)
{
    if (condition)
        throw Refusal{result};
}
template <class Map>
auto& find(Map& map, long number)
{
    const auto it = map.find(number);
    refuse(it == map.end(), SCARD_E_INVALID_HANDLE);
    return it->second;
}
/// A context takes no second call while it waits; the real client library would block here.
void check(SCARDCONTEXT number)
{
    const Context& context = find(s.contexts, number);
    refuse(context.lost, SCARD_E_NO_SERVICE);
    refuse(context.waiting, SCARD_F_INTERNAL_ERROR);
}
Handle& findHandle(SCARDHANDLE number)
{
    Handle& handle = find(s.handles, number);
    find(s.contexts, handle.context);
    return handle;
}
/// Where the card is still what it was.
Handle& findUnchanged(SCARDHANDLE number)
{
    Handle& handle = findHandle(number);
    refuse(s.contexts[handle.context].lost, SCARD_E_NO_SERVICE);
    refuse(handle.then.changes != handle.reader->changes, handle.reader->lastChange);
    return handle;
}
/// The real client library goes on asking while another handle has the card to itself.
Handle& findWhenFree(SCARDHANDLE number)
{
    const SCARDHANDLE& owner = findHandle(number).reader->transaction;
    std::unique_lock<std::mutex> lock(mutex, std::adopt_lock);
    changed.wait(lock, [&] { return owner == 0 || owner == number; });
    lock.release();
    return findHandle(number);
}
/// Of the handles of a context that is gone.
void endTransactions(SCARDCONTEXT context)
{
    for (const auto& [number, handle] : s.handles)
        if (handle.context == context && handle.reader->transaction == number)
            handle.reader->transaction = 0;
}
void connect(Handle& handle, DWORD mode, DWORD protocols, DWORD& active)
{
    refuse(mode != SCARD_SHARE_SHARED, SCARD_E_INVALID_VALUE); // others use the card too
    refuse(!handle.reader->card, SCARD_E_NO_SMARTCARD);
    handle.then = *handle.reader;
    handle.reader->hasProtocol = true;
    active = handle.then.protocol();
    refuse((protocols & active) == 0, SCARD_E_PROTO_MISMATCH);
}
Reader* findReader(const char* name)
{
    const auto it =
        std::find_if(s.readers.begin(), s.readers.end(), [&](Reader& r) { return r.name == name; });
    return it == s.readers.end() ? nullptr : &*it;
}
/// Fills the event states; true when the call has something to report. The call began with so many readers.
bool refresh(SCARD_READERSTATE* states, DWORD count, DWORD readers)
{
    bool report = std::all_of(states, states + count, // nothing to wait for
                              [](auto& one) { return (one.dwCurrentState & SCARD_STATE_IGNORE) != 0; });
    for (SCARD_READERSTATE* state = states; state != states + count; ++state) {
        if ((state->dwCurrentState & SCARD_STATE_IGNORE) != 0) {
            state->dwEventState = 0;
            continue;
        }
        const Reader* found = findReader(state->szReader);
        if (found == nullptr) { // the notification; the caller may say how many readers it knows
            const DWORD known = state->dwCurrentState >> 16;
            state->dwEventState = s.attached() != (known != 0 ? known : readers) ? SCARD_STATE_CHANGED : 0;
            report = report || state->dwEventState != 0;
            continue;
        }
        const Reader& reader = *found;
        const Bytes atr = reader.card ? reader.card->atr() : Bytes();
        const DWORD before = state->dwCurrentState;
        // That somebody begins to use the card is no news, that nobody does any more is.
        const bool inUse = reader.card && std::any_of(s.handles.begin(), s.handles.end(), [&](auto& one) {
                               return one.second.reader == found && s.contexts.count(one.second.context) != 0;
                           });
        // A reader that came back is no news, nor is one that had no card then.
        const bool news = (before & (reader.state() | SCARD_STATE_UNKNOWN)) == 0 ||
                          (!reader.attached && (before & SCARD_STATE_UNKNOWN) == 0) ||
                          ((before & SCARD_STATE_INUSE) != 0 && !inUse) ||
                          (before >> 16 != 0 && before >> 16 != reader.events);
        state->dwEventState = reader.events << 16 | reader.state() | (inUse ? SCARD_STATE_INUSE : 0) |
                              (news ? SCARD_STATE_CHANGED : 0);
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
void detachReader(int reader, bool isForgotten)
{
    change(reader, [=](Reader& r) { r.take(nullptr), r.attached = false, r.forgotten = isForgotten; });
}
void attachReader(int reader)
{
    change(reader, [](Reader& r) { r.attached = true, r.forgotten = false; });
}
void stopService()
{
    locked([] {
        s.runs = false;
        for (auto& [number, context] : s.contexts) {
            context.lost = true;
            endTransactions(number);
        }
    });
}
void startService()
{
    locked([] { s.runs = true; });
}
void insertCard(int reader, std::shared_ptr<vcard::Card> card)
{
    card->reset();
    change(reader, [&](Reader& r) { r.take(std::move(card)); });
}
void removeCard(int reader)
{
    change(reader, [](Reader& r) { r.take(nullptr); });
}
void resetCard(int reader)
{
    change(reader, [](Reader& r) { r.resetCard(), r.transaction = 0; });
}
void unpowerCard(int reader)
{
    change(reader, [](Reader& r) { r.resetCard(false), r.transaction = 0; });
}
void loseProtocol(int reader)
{
    change(reader, [](Reader& r) { r.card->reset(), r.hasProtocol = false; });
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
    for (const Call& one : calls())
        if (one.name == "SCardTransmit")
            texts.push_back(vcard::toHex(one.command));
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
    locked([&] { s.plans.push_back({name, nth - 1, times, result}); });
}
void replaceAnswer(const Bytes& answer, int nth)
{
    locked([&] { s.plans.push_back({"answer", nth - 1, 1, 0, answer}); });
}
void beforeCall(const std::string& name, int nth, std::function<void()> action)
{
    locked([&] { s.plans.push_back({name, nth - 1, 1, 0, {}, std::move(action)}); });
}
void forgetPlans()
{
    locked([] { s.plans.clear(); });
}
void awaitBlockedWaits(int count, const std::function<void()>& action)
{
    std::unique_lock<std::mutex> lock(mutex);
    const auto waits = [](auto& context) { return context.second.waiting; };
    changed.wait(lock, [&] { return std::count_if(s.contexts.begin(), s.contexts.end(), waits) >= count; });
    action();
}
Open open()
{
    return locked([] {
        Open now{static_cast<int>(s.contexts.size()), static_cast<int>(s.handles.size()), 0};
        for (const Reader& reader : s.readers)
            now.transactions += reader.transaction != 0 ? 1 : 0;
        return now;
    });
}

} // namespace fakepcsc

using namespace fakepcsc;

const SCARD_IO_REQUEST g_rgSCardT0Pci = {SCARD_PROTOCOL_T0, sizeof(SCARD_IO_REQUEST)};
const SCARD_IO_REQUEST g_rgSCardT1Pci = {SCARD_PROTOCOL_T1, sizeof(SCARD_IO_REQUEST)};
const SCARD_IO_REQUEST g_rgSCardRawPci = {SCARD_PROTOCOL_RAW, sizeof(SCARD_IO_REQUEST)};

LONG SCardEstablishContext(DWORD, LPCVOID, LPCVOID, LPSCARDCONTEXT context)
{
    return call("SCardEstablishContext", [&] {
        refuse(!s.runs, SCARD_E_NO_SERVICE);
        s.contexts[*context = ++lastId] = {};
    });
}
LONG SCardReleaseContext(SCARDCONTEXT context)
{
    // Handles of the context stay on the list, so that a leak shows.
    return call("SCardReleaseContext", [&] {
        refuse(find(s.contexts, context).waiting, SCARD_F_INTERNAL_ERROR);
        for (auto& [number, handle] : s.handles) {
            const bool isHeld = handle.context == context && handle.reader->transaction == number;
            if (isHeld && handle.reader->card)
                handle.reader->resetCard(); // the service does so where one was in the middle of something
        }
        endTransactions(context);
        s.contexts.erase(context);
    });
}
LONG SCardIsValidContext(SCARDCONTEXT context)
{
    return call("SCardIsValidContext", [&] { find(s.contexts, context); }); // the service is not asked
}
LONG SCardListReaders(SCARDCONTEXT context, LPCSTR, LPSTR names, LPDWORD length)
{
    return call("SCardListReaders", [&] {
        check(context);
        std::string list;
        for (const Reader& reader : s.readers)
            list += reader.attached ? reader.name + '\0' : "";
        refuse(list.empty(), SCARD_E_NO_READERS_AVAILABLE);
        const DWORD room = std::exchange(*length, list.size() + 1);
        refuse(room < *length, SCARD_E_INSUFFICIENT_BUFFER);
        std::memcpy(names, list.c_str(), *length);
    });
}
LONG SCardConnect(SCARDCONTEXT context, LPCSTR name, DWORD mode, DWORD protocols, LPSCARDHANDLE handle,
                  LPDWORD active)
{
    return call("SCardConnect", [&] {
        check(context);
        Handle fresh{context, findReader(name), {}};
        refuse(fresh.reader == nullptr || !fresh.reader->attached, SCARD_E_UNKNOWN_READER);
        fresh.reader->powered = true;
        connect(fresh, mode, protocols, *active);
        s.handles[*handle = ++lastId] = fresh;
    });
}
LONG SCardReconnect(SCARDHANDLE number, DWORD mode, DWORD protocols, DWORD action, LPDWORD active)
{
    *active = SCARD_PROTOCOL_UNDEFINED; // what the real service says when the card does not let it
    return call("SCardReconnect", [&] {
        Handle& handle = findWhenFree(number);
        refuse(s.contexts[handle.context].lost, SCARD_E_NO_SERVICE);
        if (action == SCARD_RESET_CARD && handle.reader->card)
            handle.reader->resetCard();
        connect(handle, mode, protocols, *active);
    });
}
LONG SCardDisconnect(SCARDHANDLE number, DWORD disposition)
{
    return call("SCardDisconnect", [&] {
        const Handle handle = find(s.handles, number);
        SCARDHANDLE& owner = handle.reader->transaction;
        refuse(disposition != SCARD_LEAVE_CARD, SCARD_E_INVALID_VALUE); // others share the card
        owner = owner == number ? 0 : owner;
        s.handles.erase(number);
        const auto context = s.contexts.find(handle.context); // after its release nothing is left to end
        refuse(context != s.contexts.end() && context->second.lost, SCARD_E_NO_SERVICE);
    });
}
LONG SCardBeginTransaction(SCARDHANDLE number)
{
    return call("SCardBeginTransaction", [&] {
        findUnchanged(number);
        findWhenFree(number);
        Reader& reader = *findUnchanged(number).reader;
        reader.begun = reader.transaction == number ? reader.begun + 1 : 1;
        reader.transaction = number;
    });
}
LONG SCardEndTransaction(SCARDHANDLE number, DWORD disposition)
{
    return call("SCardEndTransaction", [&] {
        refuse(disposition != SCARD_LEAVE_CARD, SCARD_E_INVALID_VALUE);
        Reader& reader = *findUnchanged(number).reader;
        refuse(reader.transaction != 0 && reader.transaction != number, SCARD_E_SHARING_VIOLATION);
        refuse(reader.transaction == 0, SCARD_E_NOT_TRANSACTED);
        if (--reader.begun == 0)
            reader.transaction = 0;
    });
}
LONG SCardStatus(SCARDHANDLE number, LPSTR name, LPDWORD nameLength, LPDWORD state, LPDWORD protocol,
                 LPBYTE atr, LPDWORD atrLength)
{
    return call("SCardStatus", [&] {
        findWhenFree(number);
        const Reader& reader = *findUnchanged(number).reader;
        const Bytes bytes = reader.card->atr();
        const DWORD nameRoom = std::exchange(*nameLength, reader.name.size() + 1);
        const DWORD atrRoom = std::exchange(*atrLength, bytes.size());
        *state =
            SCARD_PRESENT | (reader.powered ? SCARD_POWERED | SCARD_NEGOTIABLE : 0) | reader.events << 16;
        *protocol = reader.protocol();
        refuse(nameRoom < *nameLength || atrRoom < *atrLength, SCARD_E_INSUFFICIENT_BUFFER);
        std::memcpy(name, reader.name.c_str(), *nameLength);
        std::copy(bytes.begin(), bytes.end(), atr);
    });
}
LONG SCardGetStatusChange(SCARDCONTEXT context, DWORD timeout, SCARD_READERSTATE* states, DWORD count)
{
    return call("SCardGetStatusChange", [&] {
        check(context);
        refuse(count > PCSCLITE_MAX_READERS_CONTEXTS, SCARD_E_INVALID_PARAMETER);
        for (SCARD_READERSTATE* state = states; state != states + count; ++state) {
            const Reader* reader = findReader(state->szReader);
            const bool isNotification = std::strcmp(state->szReader, R"(\\?PnP?\Notification)") == 0;
            refuse(reader != nullptr ? reader->forgotten : !isNotification, SCARD_E_UNKNOWN_READER);
        }
        const DWORD readers = s.attached();
        if (refresh(states, count, readers))
            return;
        refuse(timeout != INFINITE, SCARD_E_TIMEOUT); // time passes at once
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
        refuse(own.lost, SCARD_E_NO_SERVICE);
        refuse(own.cancelled, SCARD_E_CANCELLED);
    });
}
LONG SCardCancel(SCARDCONTEXT context)
{
    return call("SCardCancel", [&] {
        find(s.contexts, context).cancelled = true;
        wakeAll();
    });
}
LONG SCardTransmit(SCARDHANDLE number, const SCARD_IO_REQUEST* pci, LPCBYTE command, DWORD length,
                   SCARD_IO_REQUEST*, LPBYTE answer, LPDWORD answerLength)
{
    const scarce::Plenty plenty;
    const Bytes sent(command, command + length);
    const auto transmit = [&] {
        const Handle handle = findUnchanged(number);
        refuse(length < 4, SCARD_E_INVALID_PARAMETER);
        const SCARDHANDLE owner = handle.reader->transaction;
        refuse(owner != 0 && owner != number, SCARD_E_SHARING_VIOLATION);
        refuse(!handle.reader->powered, SCARD_W_UNPOWERED_CARD);
        refuse(!handle.reader->hasProtocol || pci->dwProtocol != handle.then.protocol(),
               SCARD_E_PROTO_MISMATCH);
        std::optional<Plan> plan = due("answer");
        if (!plan) {
            const Unlocked unlocked; // a card may pull itself out of the reader
            plan = Plan{"", 0, 0, 0, handle.then.card->transmit(sent)};
        }
        refuse(plan->answer.size() > *answerLength, SCARD_E_INSUFFICIENT_BUFFER);
        std::copy(plan->answer.begin(), plan->answer.end(), answer);
        *answerLength = plan->answer.size();
    };
    const LONG result = call("SCardTransmit", transmit, sent);
    if (result != SCARD_S_SUCCESS)
        *answerLength = 0; // as the real client library leaves it where the card was not reached
    return result;
}
