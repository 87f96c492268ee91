#include "pkcs11/desktop/CallLock.h"

#include "tests/support/Threads.h"

#include <gtest/gtest.h>
#include <thread>

namespace {

// An offer of a turn that gets lost shows as a test that does not end.
TEST(DesktopCallLockTest, NobodyMissesHisTurn)
{
    constexpr int kRounds = 50'000;
    PKCS11::CallLock lock;
    std::atomic<int> arrived{0};
    int inside = 0;
    const auto run = [&] {
        for (int round = 1; round <= kRounds; ++round) {
            ++arrived;
            while (arrived < 2 * round)
                std::this_thread::yield();
            lock.enter();
            ++inside;
            lock.leave();
        }
    };
    std::thread other(run);
    run();
    other.join();
    EXPECT_EQ(inside, 2 * kRounds);
}

TEST(DesktopCallLockTest, WhoWaitsComesBeforeWhoJustLeft)
{
    constexpr int kRounds = 40;
    PKCS11::CallLock lock;
    int times = 0;
    for (int round = 0; round < kRounds; ++round) {
        std::atomic<pid_t> id{0};
        std::atomic<bool> wasInside{false};
        lock.enter();
        std::thread other([&] { id = gettid(), lock.enter(), wasInside = true, lock.leave(); });
        awaitSleep(id);
        lock.leave();
        lock.enter();
        times += wasInside ? 1 : 0;
        lock.leave();
        other.join();
    }
    EXPECT_GT(times, kRounds / 2); // it may be late, on a busy machine often
}

} // namespace
