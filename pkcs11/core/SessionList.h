#pragma once

#include "pkcs11/Cryptoki.h"
#include "pkcs11/core/OwningTable.h"
#include "pkcs11/core/Session.h"

namespace PKCS11 {

/// All open sessions of the library.
class SessionList : public OwningTable<Session> {
public:
    SessionList() = default;
    ~SessionList() override;

    /// Opens a session and writes its handle. A first failure may have come from a replaced card whose token
    /// was discarded, so opening is tried exactly once more. Throws CKR_ARGUMENTS_BAD (7) for a null
    /// phSession, and what Session::openSession throws.
    void openSession(Slot* slot, CK_SLOT_ID slotID, CK_FLAGS flags, void* pApplication, CK_NOTIFY notify,
                     CK_SESSION_HANDLE* phSession);
    /// The session, reopened when it was paused. Throws CKR_SESSION_HANDLE_INVALID (0xB3); where the session
    /// has ended with its card, its handle is free from then on. Begins a Cryptoki call: the session fetches
    /// its token anew.
    Session* getSession(CK_SESSION_HANDLE handle);
    /// The session as it stands, or null. Never throws.
    Session* peekSession(CK_SESSION_HANDLE handle) const { return at(handle); }
    /// Throws CKR_SESSION_HANDLE_INVALID (0xB3), also for a paused session whose card is away; that one is
    /// removed all the same.
    void closeSession(CK_SESSION_HANDLE handle);
    /// Closes and removes the sessions of the slot, also when its card is away.
    void closeAllSessions(CK_SLOT_ID slotID);
    /// Pauses the sessions of the slot; their handles stay valid.
    void pauseAllSessions(CK_SLOT_ID slotID);
    void pauseAllSessions(const Slot* slot);
    /// Pauses the sessions of that session's slot; throws CKR_OBJECT_HANDLE_INVALID (0x82) for an unknown
    /// handle.
    void pauseAllSessions2(CK_SESSION_HANDLE handle);
    /// Ends the sessions of the slot, whose card is gone.
    void endAllSessions(const Slot* slot);
    /// Drops every operation that works with the object, which is about to be destroyed.
    void endOperations(const Object* object);

private:
    /// Closes the session and gives its handle free, whatever fails.
    void remove(CK_SESSION_HANDLE handle) noexcept;
};

} // namespace PKCS11
