#include "pkcs11/core/SessionList.h"

#include "pkcs11/PKCS11Exception.h"
#include "pkcs11/core/Arguments.h"
#include "pkcs11/pcsc/Slot.h"

#include <utility>

namespace PKCS11 {

namespace {

/// No failure of one session stops a walk over all of them.
template <class Action>
void swallow(Action action) noexcept
{
    try {
        action();
    } catch (...) { // NOLINT(bugprone-empty-catch)
    }
}

} // namespace

SessionList::~SessionList()
{
    for (unsigned long handle = 1; handle <= highWater(); ++handle)
        remove(handle);
}

void SessionList::openSession(Slot* slot, CK_SLOT_ID slotID, CK_FLAGS flags, void* pApplication,
                              CK_NOTIFY notify, CK_SESSION_HANDLE* phSession)
{
    requirePointer(phSession);
    auto session = std::make_unique<Session>();
    try {
        session->openSession(slot, slotID, flags, pApplication, notify);
    } catch (const PKCS11Exception&) {
        session->openSession(slot, slotID, flags, pApplication, notify);
    }
    *phSession = put(std::move(session));
}

Session* SessionList::getSession(CK_SESSION_HANDLE handle)
{
    constexpr char kWhat[] = "CKR_SESSION_HANDLE_INVALID";
    constexpr char kWhere[] = "SessionList::getSession";
    if (const Session* known = peekSession(handle); known != nullptr && known->hasEnded())
        destroy(handle);
    Session* session = peekSession(handle);
    if (session == nullptr)
        throw PKCS11Exception(CKR_SESSION_HANDLE_INVALID, kWhat, kWhere);
    session->beginCall();
    try {
        session->reopenSession();
    } catch (const PKCS11Exception&) {
        throw PKCS11Exception(CKR_SESSION_HANDLE_INVALID, kWhat, kWhere);
    }
    return session;
}

void SessionList::closeSession(CK_SESSION_HANDLE handle)
{
    try {
        getSession(handle)->closeSession();
    } catch (const PKCS11Exception&) {
        // Paused, and its card is away: the caller takes it as closed, so it must not keep a later login
        // alive.
        remove(handle);
        throw;
    }
    destroy(handle);
}

void SessionList::closeAllSessions(CK_SLOT_ID slotID)
{
    forEach([&](CK_SESSION_HANDLE handle, const Session& session) {
        if (session.slotID() == slotID)
            remove(handle);
    });
}

void SessionList::remove(CK_SESSION_HANDLE handle) noexcept
{
    Session* session = peekSession(handle);
    if (session == nullptr)
        return;
    swallow([&] {
        // A paused session closes without a logout; the login still ends with the slot's last session.
        if (session->isPaused())
            session->slot()->logoutLastSession();
        else
            session->closeSession();
    });
    destroy(handle); // the slot counts the session until here
}

void SessionList::pauseAllSessions(CK_SLOT_ID slotID)
{
    forEach([&](CK_SESSION_HANDLE, Session& session) {
        if (session.slotID() == slotID)
            swallow([&] { session.closeSession(); });
    });
}

void SessionList::pauseAllSessions(const Slot* slot)
{
    forEach([&](CK_SESSION_HANDLE, Session& session) {
        if (session.slot() == slot)
            swallow([&] { session.closeSession(); });
    });
}

void SessionList::pauseAllSessions2(CK_SESSION_HANDLE handle)
{
    pauseAllSessions(static_cast<Session*>(getEntry(handle))->slotID());
}

void SessionList::endAllSessions(const Slot* slot)
{
    forEach([&](CK_SESSION_HANDLE, Session& session) {
        if (session.slot() == slot)
            session.end();
    });
}

void SessionList::endOperations(const Object* object)
{
    forEach([&](CK_SESSION_HANDLE, Session& session) {
        if (session.usesObject(object))
            session.cleanMechanism();
    });
}

} // namespace PKCS11
