#include "pkcs11/desktop/CallLock.h"

#include <chrono>
#include <new>

namespace PKCS11 {

namespace {

/// Between two looks at whether entering has become pointless.
constexpr std::chrono::milliseconds kPatience{2};

} // namespace

void CallLock::enter()
{
    if (isInside()) {
        ++m_depth;
        return;
    }
    m_mutex.lock();
    takeOwnership();
}

bool CallLock::enterUnless(bool (*isPointless)())
{
    // By the system's clock: ThreadSanitizer does not see what is locked by another one.
    while (!m_mutex.try_lock_until(std::chrono::system_clock::now() + kPatience)) {
        if (isPointless())
            return false;
    }
    takeOwnership();
    return true;
}

void CallLock::takeOwnership()
{
    m_owner = pthread_self();
    m_depth = 1;
}

bool CallLock::leave()
{
    if (!isInside() || --m_depth > 0)
        return false;
    m_owner = 0;
    m_mutex.unlock();
    return true;
}

void CallLock::reset()
{
    new (&m_mutex) std::timed_mutex;
    m_owner = 0;
    m_depth = 0;
}

} // namespace PKCS11
