#pragma once

#include "pkcs11/core/OwningTable.h"
#include "pkcs11/pcsc/Slot.h"

#include <atomic>
#include <memory>

namespace PKCS11 {

class ReaderStates;

/// The slots of the library under IDs 1 to n, and the wait for slot events.
class SlotList : public OwningTable<Slot> {
public:
    SlotList();
    ~SlotList() override;

    virtual void addSlot(std::unique_ptr<Slot> slot) { put(std::move(slot)); }
    /// Null for an unknown ID.
    Slot* getSlot(CK_SLOT_ID id) const { return at(id); }
    /// As C_GetSlotList. Throws CKR_BUFFER_TOO_SMALL (0x150) for the slots with a token, and where readers
    /// may come later.
    void getIDList(CK_BBOOL tokenPresent, CK_SLOT_ID* list, CK_ULONG* count);
    /// As C_WaitForSlotEvent. Throws CKR_NO_EVENT (8) and CKR_FUNCTION_FAILED (6). Returns false when the
    /// wait was cancelled; *slot is then left alone.
    bool waitForSlotEvent(CK_FLAGS flags, CK_SLOT_ID* slot, void* reserved);
    /// Cancels the waits of other threads and returns when they have left the list. A wait of this thread,
    /// which a signal handler has interrupted, does not touch the list again.
    void stopWaitForSlotEvent();

    /// Gives a slot to each reader that has none yet, when readers may come later.
    virtual void update() {}

protected:
    /// True when a wait is for new readers and for the PC/SC service too.
    virtual bool waitsForReaders() const { return false; }
    /// What a new wait watches: the readers of all slots.
    virtual std::unique_ptr<ReaderStates> readerStates();
    /// Whether there is an event between the two states of a reader; logs it.
    virtual bool isEvent(PCSCWord before, PCSCWord now) const;
    /// The slot to report to a wait that blocks or to a poll, or 0.
    virtual CK_SLOT_ID findEvent(ReaderStates& states, bool block);
    /// The first slot whose reader changed since the last look of this wait, or 0.
    CK_SLOT_ID findChanged(ReaderStates& states) const;
    /// The first slot whose reader changed since its state was remembered, or 0. Later slots are not looked
    /// at, so that their events are found by the next call.
    CK_SLOT_ID findFlagged(const ReaderStates& states) const;

private:
    void refreshReported(const ReaderStates& states);

    /// Of the last poll that found nothing, for the next wait; 0 when there is none. A wait that finds
    /// another one under way establishes its own, so that no wait holds up another one or the other calls.
    std::atomic<PCSCContext> m_context{0};
    /// After a fork the context belongs to the parent alone.
    const int m_process;
};

} // namespace PKCS11
