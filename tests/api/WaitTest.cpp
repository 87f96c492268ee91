#include "tests/support/CryptokiFixture.h"
#include "tests/support/TraceFile.h"
#include "tools/vcard/PivCard.h"

#include <atomic>
#include <csignal>
#include <functional>
#include <future>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

/// The last thing that runs in a process, behind the library's own end.
struct LastWord {
    std::function<int()> exitCode;
    ~LastWord()
    {
        if (exitCode)
            _exit(exitCode());
    }
};
LastWord lastWord __attribute__((init_priority(101)));

class WaitTest : public CryptokiFixture {
protected:
    using Waits = std::vector<std::future<CK_RV>>;

    /// That many threads, each inside a blocked wait.
    static Waits blockedWaits(int count)
    {
        Waits waits;
        for (int i = 0; i < count; ++i)
            waits.push_back(std::async(std::launch::async, [] {
                CK_SLOT_ID slot = 99;
                const CK_RV rv = C_WaitForSlotEvent(0, &slot, nullptr);
                EXPECT_EQ(slot, rv == CKR_OK ? 1U : 99U);
                return rv;
            }));
        fakepcsc::awaitBlockedWaits(count);
        return waits;
    }
    /// Runs the action in a signal handler of this thread while it waits, beside so many others.
    static CK_RV waitInterruptedBy(void (*action)(), int others)
    {
        static std::atomic<void (*)()> interrupt;
        interrupt = action;
        std::signal(SIGUSR1, [](int) { interrupt.exchange(nullptr)(); });
        std::thread([=, waiter = pthread_self()] {
            fakepcsc::awaitBlockedWaits(others + 1, [&] {
                pthread_kill(waiter, SIGUSR1);
                while (interrupt != nullptr)
                    std::this_thread::yield();
            });
        }).detach();
        CK_SLOT_ID slot = 0;
        return C_WaitForSlotEvent(0, &slot, nullptr);
    }
    static void expectAll(CK_RV rv, Waits waits)
    {
        for (auto& wait : waits)
            EXPECT_EQ(wait.get(), rv);
    }
    static CK_RV poll()
    {
        CK_SLOT_ID slot = 0;
        return C_WaitForSlotEvent(CKF_DONT_BLOCK, &slot, nullptr);
    }
    /// Initialises and finalises while threads wait in a loop; some are refused, some cancelled.
    static void cross(int waiters, int times)
    {
        std::atomic<bool> done{false};
        std::atomic<int> others{0};
        std::vector<std::thread> threads;
        threads.reserve(waiters);
        for (int i = 0; i < waiters; ++i)
            threads.emplace_back([&, flags = i == 2 ? CK_FLAGS{CKF_DONT_BLOCK} : 0] {
                CK_SLOT_ID slot = 0;
                while (!done) {
                    const CK_RV rv = C_WaitForSlotEvent(flags, &slot, nullptr);
                    others += rv != CKR_CRYPTOKI_NOT_INITIALIZED && rv != CKR_NO_EVENT;
                    std::this_thread::yield();
                }
            });
        for (int i = 0; i < times; ++i) {
            EXPECT_EQ(C_Initialize(nullptr), CKR_OK);
            if (i % 4 == 0)
                fakepcsc::awaitBlockedWaits(1);
            EXPECT_EQ(C_Finalize(nullptr), CKR_OK);
            fakepcsc::clearCalls();
        }
        done = true;
        for (std::thread& thread : threads)
            thread.join();
        EXPECT_EQ(others, 0);
        EXPECT_EQ(fakepcsc::openContexts(), 1); // the library's own
    }
};

TEST_F(WaitTest, WaitsDoNotHoldUpEachOtherNorAnythingElse)
{
    start(std::make_shared<vcard::PivCard>());
    Waits waits = blockedWaits(3);
    EXPECT_EQ(poll(), CKR_NO_EVENT);
    EXPECT_EQ(login("123456"), CKR_OK);
    fakepcsc::removeCard(m_reader);
    expectAll(CKR_OK, std::move(waits));

    waits = blockedWaits(3);
    EXPECT_EQ(C_Finalize(nullptr), CKR_OK);
    expectAll(CKR_CRYPTOKI_NOT_INITIALIZED, std::move(waits));
    EXPECT_EQ(fakepcsc::openContexts(), 1);
}

TEST_F(WaitTest, WaitsCrossTheLibrarysEnds)
{
    SystemWrapper::s_logPath = "/dev/null"; // with a trace, unless this process has one
    fakepcsc::addReader("Reader 0");
    cross(1, 1000);
    cross(3, 1000);
}

TEST_F(WaitTest, ExitEndsWhoeverWaits)
{
    const auto exitInsideAWait = [] {
        alarm(30);
        fakepcsc::addReader("Reader 0");
        C_Initialize(nullptr);
        C_Initialize(nullptr);
        Waits others = blockedWaits(2);
        lastWord.exitCode = [] {
            // What other exit functions call finds the library ended.
            CK_ULONG count = 0;
            CK_FUNCTION_LIST* list = nullptr;
            const CK_RV ended = CKR_CRYPTOKI_NOT_INITIALIZED;
            return C_GetSlotList(CK_FALSE, nullptr, &count) == ended && C_CloseSession(1) == ended &&
                           C_Initialize(nullptr) == ended && C_Finalize(nullptr) == ended &&
                           poll() == ended && C_GetFunctionList(&list) == ended &&
                           fakepcsc::openContexts() == 1 // that of the interrupted wait
                       ? 0
                       : 2;
        };
        waitInterruptedBy([] { std::exit(1); }, 2);
    };
    EXPECT_EXIT(exitInsideAWait(), ::testing::ExitedWithCode(0), "");
}

TEST_F(WaitTest, FinalizeMayInterruptAWaitOfItsOwnThread)
{
    fakepcsc::addReader("Reader 0");
    ASSERT_EQ(C_Initialize(nullptr), CKR_OK);
    EXPECT_EQ(waitInterruptedBy([] { C_Finalize(nullptr); }, 0), CKR_CRYPTOKI_NOT_INITIALIZED);
}

TEST_F(WaitTest, ForkedChildLeavesTheParentsAlone)
{
    const TraceFile trace;
    start(std::make_shared<vcard::PivCard>());
    ASSERT_EQ(poll(), CKR_NO_EVENT); // a context that the next wait takes
    Waits waits = blockedWaits(1);
    const std::size_t lines = trace.lines().size();
    for (const bool finalizes : {false, true}) {
        fakepcsc::clearCalls();
        pid_t child = 0;
        fakepcsc::awaitBlockedWaits(1, [&] { child = fork(); }); // while nobody is in the service
        if (child == 0) {
            alarm(30);
            lastWord.exitCode = [] { return static_cast<int>(fakepcsc::calls().size()); };
            if (finalizes)
                C_Finalize(nullptr);
            std::exit(99);
        }
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0) << finalizes;
    }
    EXPECT_EQ(trace.lines().size(), lines);
    EXPECT_EQ(login("123456"), CKR_OK);
    EXPECT_EQ(C_Finalize(nullptr), CKR_OK);
    expectAll(CKR_CRYPTOKI_NOT_INITIALIZED, std::move(waits));
}

} // namespace
