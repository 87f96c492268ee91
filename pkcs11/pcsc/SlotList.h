#pragma once

#include "pkcs11/core/Table.h"
#include "pkcs11/pcsc/Slot.h"

#include <atomic>
#include <memory>

namespace PKCS11 {

/// The slots of the library under IDs 1 to n, and the wait for slot events. Owns its slots.
class SlotList : public Table {
public:
    SlotList() = default;
    ~SlotList() override;

    virtual void addSlot(std::unique_ptr<Slot> slot);
    /// Null for an unknown ID.
    Slot* getSlot(CK_SLOT_ID id) const { return static_cast<Slot*>(find(id)); }
    /// As C_GetSlotList. Throws CKR_BUFFER_TOO_SMALL (0x150) for the slots with a token.
    void getIDList(CK_BBOOL tokenPresent, CK_SLOT_ID* list, CK_ULONG* count);
    /// As C_WaitForSlotEvent. Throws CKR_NO_EVENT (8) and CKR_FUNCTION_FAILED (6). Returns false when the
    /// wait was cancelled; *slot is then left alone.
    bool waitForSlotEvent(CK_FLAGS flags, CK_SLOT_ID* slot, void* reserved);
    /// Cancels a wait that blocks in another thread, and returns when that thread has left the list.
    void stopWaitForSlotEvent();

private:
    struct ReaderStates;

    /// Takes part in the wait from construction to destruction.
    class Waiter {
    public:
        explicit Waiter(SlotList& list);
        ~Waiter();
        Waiter(const Waiter&) = delete;
        Waiter& operator=(const Waiter&) = delete;

    private:
        SlotList& m_list;
    };

    PCSCContext waitContext();
    /// The PC/SC result.
    long releaseWaitContext();
    void refreshReported(const ReaderStates& states);
    CK_SLOT_ID findEvent(ReaderStates& states) const;
    CK_SLOT_ID findFlagged(const ReaderStates& states);
    void cancelWaiters();

    /// Context of its own, so that a blocked wait does not hold up the other calls; 0 from every release on.
    /// A poll that found nothing keeps it.
    std::atomic<PCSCContext> m_context{0};
    std::atomic<int> m_waiters{0};
    /// The process of the waiters: after a fork their threads do not exist in the child.
    std::atomic<int> m_waitersProcess{0};
};

} // namespace PKCS11
