#pragma once

#include <atomic>
#include <pthread.h>
#include <semaphore.h>

namespace PKCS11 {

/// Lets one thread at a time into the library. The thread that is inside may enter again: a signal handler
/// can call the library while its thread is in a call, also in the middle of entering or leaving.
class CallLock {
public:
    CallLock() { reset(); }
    void enter();
    /// Enters unless another thread is inside; true when this one is now.
    bool tryEnter();
    /// Enters as soon as possible, unless it has become pointless before; true when the thread is inside.
    bool enterUnless(bool (*isPointless)());
    /// True when the thread is outside now and was not before.
    bool leave();
    /// True for the thread that is inside.
    bool isInside() const { return pthread_equal(m_owner, pthread_self()) != 0; }
    /// True for it when it has entered again.
    bool isNested() const { return isInside() && m_depth > 0; }
    /// For the child of a fork: the thread that was inside does not exist there.
    void reset();

private:
    void giveWay() const;
    template <class Wait>
    void awaitTurn(Wait wait);

    /// 0 while nobody is inside. All accesses to this and to m_waiting are sequentially consistent: a thread
    /// that counts itself as waiting and still sees an owner is seen by that owner when it leaves, and woken.
    std::atomic<pthread_t> m_owner;
    std::atomic<int> m_waiting;
    /// Who entered last.
    std::atomic<pthread_t> m_last;
    /// Posted for one that waits when the owner leaves.
    sem_t m_turn;
    /// How often the owner has entered again.
    int m_depth;
};

} // namespace PKCS11
