#include "tests/support/CryptokiFixture.h"
#include "tests/support/Expected.h"
#include "tests/support/LastWord.h"
#include "tests/support/TraceFile.h"
#include "tools/vcard/PivCard.h"

#include <atomic>
#include <csignal>
#include <functional>
#include <future>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <winscard.h>

namespace {

class WaitTest : public CryptokiFixture {
protected:
    using Waits = std::vector<std::future<std::string>>;

    /// What the trace says since the last time, in a line.
    static std::string said(TraceFile& trace)
    {
        std::string text;
        for (const std::string& line : trace.news())
            text += line.rfind("pSlot", 0) == 0 || line[0] == '-' || line.empty() ? "" : line + " | ";
        return text + "\n";
    }
    /// Polls until there is nothing more to report.
    static std::string polls(TraceFile& trace)
    {
        std::string text;
        for (std::string reported = "0"; isdigit(reported[0]) != 0 && text.size() < 2000; text += said(trace))
            reported = poll();
        return text;
    }
    /// That many threads, each inside a blocked wait.
    static Waits blockedWaits(int count)
    {
        Waits waits;
        for (int i = 0; i < count; ++i)
            waits.push_back(std::async(std::launch::async, [] { return wait(); }));
        fakepcsc::awaitBlockedWaits(count);
        return waits;
    }
    /// Runs the action in a signal handler of this thread while it waits, beside so many others.
    static std::string waitInterruptedBy(void (*action)(), int others)
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
        return wait();
    }
    static void expectAll(const std::string& reported, Waits waits)
    {
        for (auto& wait : waits)
            EXPECT_EQ(wait.get(), reported);
    }
};

using ProductWaitTest = WaitTest; // its calls of the service are other ones

TEST_F(ProductWaitTest, PollsReportEachChangeOnce)
{
    TraceFile trace;
    ASSERT_EQ(C_Initialize(nullptr), CKR_OK);
    trace.news();
    std::string shown = polls(trace);
    C_Finalize(nullptr);
    const auto insert = [](int reader) { fakepcsc::insertCard(reader, std::make_shared<vcard::PivCard>()); };
    for (const char* name : {"A reader", "B reader"})
        fakepcsc::addReader(name);
    fakepcsc::clearCalls();
    ASSERT_EQ(C_Initialize(nullptr), CKR_OK); // the PC/SC system of before goes
    EXPECT_EQ(fakepcsc::callCount("SCardReleaseContext"), 1);
    shown += said(trace);
    const std::function<void()> changes[] = {
        [] {},
        [&] { insert(0), insert(1); },
        [] { fakepcsc::removeCard(1), fakepcsc::detachReader(0); },
        [] { fakepcsc::attachReader(0); },
        [] { fakepcsc::failCall("SCardGetStatusChange", SCARD_E_NO_SERVICE); },
        [] { fakepcsc::failCall("SCardGetStatusChange", SCARD_E_NO_SERVICE, 2); },
        [] { fakepcsc::failCall("SCardEstablishContext", SCARD_E_NO_SERVICE); },
        [] { fakepcsc::failCall("SCardGetStatusChange", SCARD_E_CANCELLED, 2); },
        [] { fakepcsc::addReader("C reader"); },
    };
    for (const auto& change : changes) {
        change();
        shown += polls(trace);
        EXPECT_LE(fakepcsc::open().contexts, 2); // the library's own, and that of the last poll
    }
    EXPECT_EQ(C_Finalize(nullptr), CKR_OK);
    shown += said(trace);
    for (const auto& name : {std::string("X"), std::string(64, 'n')}) { // whose description is another one
        fakepcsc::reset();
        fakepcsc::addReader(name);
        EXPECT_EQ(C_Initialize(nullptr), CKR_OK);
        trace.news();
        shown += polls(trace);
        EXPECT_EQ(C_Finalize(nullptr), CKR_OK);
    }
    expectFile("api/WaitTest.txt", shown);
}

TEST_F(WaitTest, WaitsDoNotHoldUpEachOtherNorAnythingElse)
{
    start(std::make_shared<vcard::PivCard>());
    fakepcsc::beforeCall("SCardGetStatusChange", 1, [] { EXPECT_EQ(poll(), kNone); });
    EXPECT_EQ(poll(), kNone);
    EXPECT_EQ(fakepcsc::open().contexts, 2); // the library's own, and one for the next poll
    Waits waits = blockedWaits(3);
    EXPECT_EQ(poll(), kNone);
    EXPECT_EQ(login("123456"), CKR_OK);
    fakepcsc::removeCard(m_reader);
    expectAll("1", std::move(waits));

    waits = blockedWaits(20);
    // PC/SC loses cancels while the thread is not blocked yet.
    fakepcsc::failCall("SCardCancel", SCARD_S_SUCCESS, 1, 9);
    EXPECT_EQ(C_Finalize(nullptr), CKR_OK);
    expectAll(kEnded, std::move(waits));
    EXPECT_EQ(fakepcsc::open().contexts, 1);
}

TEST_F(WaitTest, ABlockedWaitTellsWhichReader)
{
    for (const char* name : {"A reader", "B reader"})
        fakepcsc::addReader(name);
    ASSERT_EQ(C_Initialize(nullptr), CKR_OK);
    Waits waits = blockedWaits(1);
    fakepcsc::insertCard(1, std::make_shared<vcard::PivCard>());
    expectAll("2", std::move(waits));
}

TEST_F(WaitTest, UseByAnotherProgramIsNoEvent)
{
    for (const char* name : {"A reader", "B reader"})
        fakepcsc::addReader(name);
    fakepcsc::insertCard(0, std::make_shared<vcard::PivCard>());
    ASSERT_EQ(C_Initialize(nullptr), CKR_OK);
    while (poll() != kNone)
        continue;
    SCARDCONTEXT other = 0;
    SCARDHANDLE handle = 0;
    DWORD protocol = 0;
    SCardEstablishContext(SCARD_SCOPE_SYSTEM, nullptr, nullptr, &other);
    ASSERT_EQ(SCardConnect(other, "A reader", SCARD_SHARE_SHARED, SCARD_PROTOCOL_T1, &handle, &protocol), 0);
    EXPECT_EQ(poll(), kNone);
    Waits waits = blockedWaits(1);
    // When the wait has seen the end of the use: both at once would be one change, and no event.
    fakepcsc::beforeCall("SCardGetStatusChange", 1,
                         [] { fakepcsc::insertCard(1, std::make_shared<vcard::PivCard>()); });
    EXPECT_EQ(SCardDisconnect(handle, SCARD_LEAVE_CARD), 0);
    expectAll("2", std::move(waits));
    SCardReleaseContext(other);
}

TEST_F(WaitTest, WaitsCrossTheLibrarysEnds)
{
    const char* const path = std::exchange(SystemWrapper::s_logPath, "/dev/null"); // unless it has a trace
    fakepcsc::addReader("Reader 0");
    for (const int waiters : {1, 3}) { // in a loop; some are refused, some cancelled
        std::atomic<bool> done{false};
        std::vector<std::future<void>> threads(waiters);
        for (int i = 0; i < waiters; ++i)
            threads[i] = std::async(std::launch::async, [&, flags = i == 2 ? CKF_DONT_BLOCK : 0] {
                while (!done) {
                    const std::string reported = wait(flags);
                    EXPECT_TRUE(reported == kEnded || reported == kNone) << reported;
                    std::this_thread::yield();
                }
            });
        for (int i = 0; i < 1000; ++i) {
            EXPECT_EQ(C_Initialize(nullptr), CKR_OK);
            if (i % 4 == 0)
                fakepcsc::awaitBlockedWaits(1);
            EXPECT_EQ(C_Finalize(nullptr), CKR_OK);
            fakepcsc::clearCalls();
        }
        done = true;
        threads.clear();
        EXPECT_EQ(fakepcsc::open().contexts, 1); // the library's own
    }
    SystemWrapper::s_logPath = path;
}

TEST_F(WaitTest, ExitEndsWhoeverWaits)
{
    const auto exitInsideAWait = [] {
        alarm(30);
        static const auto& trace = *new TraceFile; // never destroyed
        fakepcsc::addReader("Reader 0");
        C_Initialize(nullptr);
        C_Initialize(nullptr);
        Waits others = blockedWaits(2);
        lastWord.exitCode = [] {
            // What other exit functions call finds the library ended.
            CK_ULONG count = 0;
            CK_FUNCTION_LIST* list = nullptr;
            const CK_RV ended = CKR_CRYPTOKI_NOT_INITIALIZED;
            const std::vector<std::string> lines = trace.lines();
            const bool saysEnd = std::any_of(lines.begin(), lines.end(), [](const std::string& line) {
                return line.rfind("*** End logging at ", 0) == 0;
            });
            return saysEnd && C_GetSlotList(CK_FALSE, nullptr, &count) == ended &&
                           C_CloseSession(1) == ended && C_Initialize(nullptr) == ended &&
                           C_Finalize(nullptr) == ended && poll() == kEnded &&
                           C_GetFunctionList(&list) == ended &&
                           fakepcsc::open().contexts == 1 // that of the interrupted wait
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
    EXPECT_EQ(waitInterruptedBy([] { C_Finalize(nullptr); }, 0), kEnded);
}

TEST_F(WaitTest, ForkedChildLeavesTheParentsAlone)
{
    const TraceFile trace;
    start(std::make_shared<vcard::PivCard>());
    ASSERT_EQ(poll(), kNone); // a context that the next wait takes
    Waits waits = blockedWaits(1);
    const std::size_t lines = trace.lines().size();
    for (const bool finalizes : {false, true}) {
        fakepcsc::clearCalls();
        pid_t child = 0;
        fakepcsc::awaitBlockedWaits(1, [&] { child = fork(); }); // while nobody is in the service
        if (child == 0) {
            alarm(30);
            lastWord.exitCode = [] { return static_cast<int>(fakepcsc::calls().size()); };
            if (finalizes ? C_Finalize(nullptr) != CKR_OK
                          : !isDesktop() && C_Initialize(nullptr) != CKR_CRYPTOKI_ALREADY_INITIALIZED)
                std::_Exit(98);
            std::exit(99);
        }
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0) << finalizes;
    }
    EXPECT_EQ(trace.lines().size(), lines);
    EXPECT_EQ(login("123456"), CKR_OK);
    EXPECT_EQ(C_Finalize(nullptr), CKR_OK);
    expectAll(kEnded, std::move(waits));
}

} // namespace
