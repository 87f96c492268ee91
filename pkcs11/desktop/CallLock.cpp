#include "pkcs11/desktop/CallLock.h"

#include <ctime>

namespace PKCS11 {

namespace {

/// Between two looks at whether entering has become pointless, in nanoseconds.
constexpr long kPatience = 2'000'000;
/// What a thread that comes back at once leaves to those that wait: so many pauses, in nanoseconds, at most.
constexpr timespec kPause{0, 50'000};
constexpr int kPauses = 40;

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
    if (!m_owner.compare_exchange_strong(nobody, pthread_self()))
        return false;
    m_last = pthread_self();
    return true;
}

/// Who was inside last would be there again before a waiting thread has woken up.
void CallLock::giveWay() const
{
    for (int i = 0; i < kPauses && m_waiting > 0 && !isInside() && m_last == pthread_self(); ++i)
        nanosleep(&kPause, nullptr);
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
    giveWay();
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
    m_last = 0;
    m_waiting = 0;
    m_depth = 0;
    sem_init(&m_turn, 0, 0);
}

} // namespace PKCS11
