#include "pkcs11/desktop/CallLock.h"

#include <ctime>

namespace PKCS11 {

namespace {

/// Between two looks at whether entering has become pointless, in nanoseconds.
constexpr long kPatience = 2'000'000;

timespec patienceFromNow()
{
    constexpr long kSecond = 1'000'000'000;
    timespec end{};
    clock_gettime(CLOCK_MONOTONIC, &end);
    end.tv_nsec += kPatience;
    end.tv_sec += end.tv_nsec / kSecond;
    end.tv_nsec %= kSecond;
    return end;
}

} // namespace

bool CallLock::tryEnter()
{
    if (isInside()) {
        ++m_depth;
        return true;
    }
    pthread_t nobody = 0;
    return m_owner.compare_exchange_strong(nobody, pthread_self());
}

/// Until a turn is offered; another thread may take it first.
template <class Wait>
void CallLock::awaitTurn(Wait wait)
{
    ++m_waiting;
    if (m_owner != 0)
        wait();
    --m_waiting;
}

void CallLock::enter()
{
    while (!tryEnter())
        awaitTurn([this] { sem_wait(&m_turn); });
}

bool CallLock::enterUnless(bool (*isPointless)())
{
    while (!tryEnter()) {
        const timespec end = patienceFromNow();
        awaitTurn([&] { sem_clockwait(&m_turn, CLOCK_MONOTONIC, &end); });
        if (isPointless())
            return false;
    }
    return true;
}

bool CallLock::leave()
{
    if (!isInside())
        return false;
    if (m_depth > 0) {
        --m_depth;
        return false;
    }
    m_owner = 0;
    if (m_waiting > 0)
        sem_post(&m_turn);
    return true;
}

void CallLock::reset()
{
    m_owner = 0;
    m_waiting = 0;
    m_depth = 0;
    sem_init(&m_turn, 0, 0);
}

} // namespace PKCS11
