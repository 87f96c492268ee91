#pragma once

#include "pkcs11/Cryptoki.h"
#include "pkcs11/pcsc/PCSCSystem.h"

#include <string>
#include <vector>
#include <winscard.h>

namespace PKCS11 {

class SlotList;
class WaitContext;

/// What a wait knows about its readers: one PC/SC state per slot that there was at its beginning, in the
/// order of the IDs.
class ReaderStates {
public:
    explicit ReaderStates(std::vector<std::string> readers);
    virtual ~ReaderStates() = default;
    ReaderStates(const ReaderStates&) = delete;
    ReaderStates& operator=(const ReaderStates&) = delete;

    /// Brings the event states up to date, at once when the timeout is 0, else as soon as one differs from
    /// the current state. The PC/SC result.
    virtual long getStatusChange(WaitContext& wait, PCSCWord timeout);
    /// The ID that a reader without a slot has, or will get, in that list, when there is news of it, which
    /// counts as told then; 0 when there is none.
    virtual CK_SLOT_ID attachedSlot(const SlotList& /*slots*/) { return 0; }
    /// Takes all event states as current.
    void makeCurrent();

    CK_SLOT_ID count() const { return m_readers.size(); }
    PCSCWord currentState(CK_SLOT_ID id) const { return m_states[id - 1].dwCurrentState; }
    PCSCWord eventState(CK_SLOT_ID id) const { return m_states[id - 1].dwEventState; }

protected:
    std::vector<std::string> m_readers;
    /// Begins with those of the readers.
    std::vector<SCARD_READERSTATE> m_states;
};

} // namespace PKCS11
