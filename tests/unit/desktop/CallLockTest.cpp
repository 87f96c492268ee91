#include "pkcs11/desktop/CallLock.h"

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

} // namespace
