#pragma once

#include "pkcs11/PKCS11Exception.h"
#include "pkcs11/ReferenceCounter.h"
#include "pkcs11/core/SessionList.h"
#include "pkcs11/frontend/trace/FileLogger.h"
#include "pkcs11/pcsc/SlotList.h"

#include <memory>

namespace PKCS11 {

/// The library object: function table, initialised state, slots, sessions and trace, and one method for each
/// exported function. A method never throws: it traces the call and turns every failure into a CK_RV.
///
/// Nothing here is locked. Calls come from one thread at a time, but for Finalize, which may end a
/// WaitForSlotEvent that blocks in another.
class PKCS11Wrapper : public ReferenceCounter {
public:
    PKCS11Wrapper();
    ~PKCS11Wrapper() override;

    virtual CK_RV InitSlotList() = 0;
    /// Does nothing: the slot list is built once, by Initialize.
    virtual CK_RV UpdateSlotList() { return CKR_OK; }
    virtual CK_RV GetInfo(CK_INFO* pInfo) = 0;
    /// Called after a slot-addressed call failed: pauses the slot's sessions when its card is gone or
    /// unknown.
    virtual void catchTokenException(CK_SLOT_ID slotID, PKCS11Exception ex);
    /// The same for a session-addressed call.
    virtual void catchSessionException(CK_SESSION_HANDLE hSession, PKCS11Exception ex);
    virtual CK_RV InitializeSystem() { return CKR_OK; }
    virtual void FinalizeSystem() {}
    virtual void InitLogger() {}

    /// Pauses every session of the slot; called by the slot when its card was exchanged.
    void closeAllSessions(Slot* slot);
    /// Drops the session's operation after an exception that no method caught.
    void MakeMechanismInvalid(CK_SESSION_HANDLE hSession);
    /// Null while the library is not initialised.
    SessionList* sessions() const { return m_sessions.get(); }
    CK_FUNCTION_LIST& functionList() { return m_functionList; }

    // One method per exported function, in the order and with the parameters of PKCS#11.
    // LIST_OF_METHODS

protected:
    std::unique_ptr<SlotList> m_slots;

private:
    CK_FUNCTION_LIST m_functionList{};
    std::unique_ptr<SessionList> m_sessions;
    bool m_pauseOnRemoval = true;
    bool m_initialised = false;
    int m_initialiseCount = 0;
};

} // namespace PKCS11
