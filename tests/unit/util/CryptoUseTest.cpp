#include "util/CryptoUse.h"

#include "tests/support/Failure.h"
#include "tests/support/LastWord.h"

#include <atomic>
#include <openssl/rand.h>
#include <thread>

namespace {

TEST(CryptoUseTest, TheEndOfLibcryptoWaitsForItsUsers)
{
    const auto exitBesideAUse = [] {
        alarm(30);
        static std::atomic<bool> isInside{false}, isGood{false};
        const auto use = [](bool isLong) {
            const CryptoUse crypto;
            isInside = isLong;
            while (isLong && codeOf([] { const CryptoUse another; }) == CKR_OK)
                std::this_thread::yield();
            unsigned char random[8];
            isGood = RAND_bytes(random, sizeof random) == 1;
        };
        use(false);
        isGood = false;
        std::thread(use, true).detach();
        while (!isInside)
            std::this_thread::yield();
        lastWord.exitCode = [] { return isGood ? 0 : 2; };
        std::exit(1);
    };
    EXPECT_EXIT(exitBesideAUse(), ::testing::ExitedWithCode(0), "");
}

} // namespace
