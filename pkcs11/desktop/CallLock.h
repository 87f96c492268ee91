#pragma once

#include <atomic>
#include <mutex>
#include <pthread.h>

namespace PKCS11 {

/// Lets one thread at a time into the library. The thread that is inside may enter again: a signal handler
/// can call the library while its thread is in a call.
class CallLock {
public:
    void enter();
    /// Enters as soon as possible, unless it has become pointless before; true when the thread is inside.
    bool enterUnless(bool (*isPointless)());
    /// True when the thread is outside now and was not before.
    bool leave();
    /// True for the thread that is inside.
    bool isInside() const { return pthread_equal(m_owner, pthread_self()) != 0; }
    /// True for it when it has entered again.
    bool isNested() const { return isInside() && m_depth > 1; }
    /// For the child of a fork: the thread that was inside does not exist there.
    void reset();

private:
    void takeOwnership();

    std::timed_mutex m_mutex;
    /// 0 while nobody is inside.
    std::atomic<pthread_t> m_owner{0};
    /// How often the owner has entered.
    int m_depth = 0;
};

} // namespace PKCS11
