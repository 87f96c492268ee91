// Readers and a PC/SC service that come and go, and forked children, in the desktop edition.
#include "tests/support/CryptokiFixture.h"
#include "tests/support/TraceFile.h"
#include "tools/vcard/PivCard.h"

#include <future>
#include <sys/wait.h>
#include <unistd.h>
#include <winscard.h>

namespace {

class DesktopReadersTest : public CryptokiFixture {
protected:
    using IDs = std::vector<CK_SLOT_ID>;

    static IDs slots(bool withToken = false)
    {
        CK_ULONG count = 0;
        EXPECT_EQ(C_GetSlotList(withToken, nullptr, &count), CKR_OK);
        IDs ids(count);
        EXPECT_EQ(C_GetSlotList(withToken, ids.data(), &count), CKR_OK);
        return ids;
    }
    static void insert(int reader) { fakepcsc::insertCard(reader, std::make_shared<vcard::PivCard>()); }
    static CK_RV info(CK_SLOT_ID slot)
    {
        CK_TOKEN_INFO token{};
        return C_GetTokenInfo(slot, &token);
    }
    /// The slot that a wait reports when that happens while it blocks.
    template <class Action>
    static std::string reportedWhen(const Action& action)
    {
        auto reported = std::async(std::launch::async, [] { return wait(); });
        fakepcsc::awaitBlockedWaits(1);
        action();
        return reported.get();
    }
    bool signs() { return sign(find(CKO_PRIVATE_KEY), CKM_RSA_PKCS, Bytes(35, 7)).rv == CKR_OK; }
};

TEST_F(DesktopReadersTest, TheServiceMayComeAfterTheStart)
{
    fakepcsc::stopService();
    ASSERT_EQ(C_Initialize(nullptr), CKR_OK);
    EXPECT_EQ(slots(), IDs());
    EXPECT_EQ(poll(), kNone);
    insert(fakepcsc::addReader("Reader 0"));
    fakepcsc::beforeCall("SCardEstablishContext", 3, fakepcsc::startService);
    EXPECT_EQ(wait(), "1");
    EXPECT_EQ(slots(true), IDs({1}));
    EXPECT_EQ(info(1), CKR_OK);
}

TEST_F(DesktopReadersTest, ARestartedServiceIsUsedAtTheNextCall)
{
    start(std::make_shared<vcard::PivCard>());
    EXPECT_EQ(login("123456"), CKR_OK);
    EXPECT_EQ(poll(), kNone);
    for (const bool comesBackLater : {false, true}) {
        fakepcsc::stopService();
        if (comesBackLater) {
            EXPECT_EQ(info(1), CKR_TOKEN_NOT_PRESENT);
            EXPECT_EQ(slots(true), IDs());
            EXPECT_EQ(slots(), IDs({1}));
        }
        fakepcsc::startService();
        CK_SESSION_INFO session{};
        EXPECT_EQ(C_GetSessionInfo(m_session, &session), CKR_OK);
        EXPECT_EQ(session.state, CK_STATE{CKS_RW_PUBLIC_SESSION});
        EXPECT_EQ(login("123456"), CKR_OK);
        EXPECT_TRUE(signs());
        const std::string reported = poll();
        EXPECT_TRUE(reported == "1" || reported == kNone) << reported;
    }
    for (const LONG lost : {SCARD_E_NO_SERVICE, SCARD_E_SERVICE_STOPPED, SCARD_E_INVALID_HANDLE}) {
        fakepcsc::failCall("SCardGetStatusChange", lost);
        EXPECT_EQ(info(1), CKR_OK);
    }
    fakepcsc::failCall("SCardGetStatusChange", SCARD_E_READER_UNAVAILABLE);
    EXPECT_EQ(info(1), CKR_TOKEN_NOT_PRESENT);
    for (const int failures : {1, 2}) { // one is forgiven
        fakepcsc::failCall("SCardGetStatusChange", SCARD_F_COMM_ERROR, 1, failures);
        EXPECT_EQ(poll(), failures == 1 ? kNone : "CKR_FUNCTION_FAILED");
    }
    EXPECT_EQ(poll(), kNone);
    EXPECT_EQ(fakepcsc::open().contexts, 2); // the library's own, and that of the last poll
    EXPECT_EQ(reportedWhen(fakepcsc::stopService), "1");
    fakepcsc::startService();
    EXPECT_EQ(info(1), CKR_OK);
}

TEST_F(DesktopReadersTest, AReaderThatIsGoneIsEmptyAndKeepsItsSlot)
{
    // All slots, those with a token, what a poll reports.
    using State = std::tuple<IDs, IDs, std::string>;
    const auto state = [] { return State(slots(), slots(true), poll()); };
    start(std::make_shared<vcard::PivCard>());
    insert(fakepcsc::addReader("Reader 1"));
    IDs room(2);
    CK_ULONG count = 1; // from before the second reader came
    EXPECT_EQ(C_GetSlotList(CK_FALSE, room.data(), &count), CKR_OK);
    EXPECT_EQ(room, IDs({1, 0}));
    CK_SLOT_INFO slot{};
    EXPECT_EQ(C_GetSlotInfo(2, &slot), CKR_SLOT_ID_INVALID);
    EXPECT_EQ(state(), State({1, 2}, {1, 2}, kNone));
    EXPECT_EQ(C_GetSlotList(CK_FALSE, room.data(), &(count = 1)), CKR_BUFFER_TOO_SMALL); // it has grown
    EXPECT_EQ(count, 2U);
    fakepcsc::detachReader(m_reader, true);
    EXPECT_EQ(poll(), "1");
    EXPECT_EQ(state(), State({1, 2}, {2}, kNone));
    EXPECT_EQ(C_GetSlotInfo(1, &slot), CKR_OK);
    EXPECT_EQ(slot.flags & CKF_TOKEN_PRESENT, 0U);
    EXPECT_EQ(std::pair(info(1), info(2)), std::pair(CKR_TOKEN_NOT_PRESENT, CKR_OK));
    fakepcsc::attachReader(m_reader);
    insert(m_reader);
    EXPECT_EQ(poll(), "1");
    EXPECT_EQ(slots(true), IDs({1, 2}));
    EXPECT_EQ(all({open(), login("123456")}), CKR_OK);
    EXPECT_TRUE(signs());
}

TEST_F(DesktopReadersTest, SessionsEndWithTheirCard)
{
    start(std::make_shared<vcard::PivCard>());
    const CK_SESSION_HANDLE first = m_session;
    ASSERT_EQ(all({open(), login("123456")}), CKR_OK);
    const CK_SESSION_HANDLE second = m_session;
    insert(m_reader); // another card, while nobody looks
    CK_SESSION_INFO info{};
    CK_TOKEN_INFO token{};
    EXPECT_EQ(C_GetSessionInfo(first, &info), CKR_DEVICE_REMOVED);
    EXPECT_EQ(C_GetTokenInfo(1, &token), CKR_OK);
    EXPECT_EQ(token.ulSessionCount, 0U);
    EXPECT_EQ(all({open(), login("123456")}), CKR_OK);
    EXPECT_EQ(m_session, 3U); // those of the first card stay refused until their owners know
    EXPECT_EQ(C_GetSessionInfo(first, &info), CKR_SESSION_HANDLE_INVALID);
    EXPECT_EQ(all({C_CloseSession(m_session), open()}), CKR_OK);
    EXPECT_EQ(m_session, first);
    EXPECT_EQ(C_GetSessionInfo(m_session, &info), CKR_OK);
    EXPECT_EQ(info.state, CK_STATE{CKS_RW_PUBLIC_SESSION}); // nor do they keep a login
    EXPECT_EQ(C_CloseSession(second), CKR_SESSION_HANDLE_INVALID);
    fakepcsc::beforeCall("SCardGetStatusChange", 1, [this] { fakepcsc::removeCard(m_reader); });
    EXPECT_EQ(C_GetSessionInfo(m_session, &info), CKR_DEVICE_REMOVED);
    insert(m_reader);
    EXPECT_EQ(C_GetSessionInfo(m_session, &info), CKR_SESSION_HANDLE_INVALID);
}

TEST_F(DesktopReadersTest, ABlockedWaitSeesReadersComeAndGo)
{
    ASSERT_EQ(C_Initialize(nullptr), CKR_OK);
    EXPECT_EQ(reportedWhen([] { fakepcsc::addReader("Reader 0"); }), "1");
    EXPECT_EQ(slots(), IDs({1}));
    EXPECT_EQ(reportedWhen([] { fakepcsc::addReader("Reader 1"); }), "2");
    EXPECT_EQ(reportedWhen([] { fakepcsc::addReader("Reader 2" + std::string(70, '.')); }),
              "3"); // 2 is for the one before
    EXPECT_EQ(slots(), IDs({1, 2, 3}));
    EXPECT_EQ(reportedWhen([] { fakepcsc::detachReader(1, true); }), "2");
    EXPECT_EQ(reportedWhen([] { insert(2); }), "3"); // of the others, while that one is gone
    EXPECT_EQ(reportedWhen([] { fakepcsc::attachReader(1); }), "2");
    EXPECT_EQ(reportedWhen([] { insert(1); }), "2");
    EXPECT_EQ(reportedWhen([] {
                  fakepcsc::addReader("Reader 3");
                  EXPECT_EQ(slots().size(), 4U); // it has its slot before the wait looks
              }),
              "4");
    EXPECT_EQ(reportedWhen([] { C_Finalize(nullptr); }), kEnded);
    ASSERT_EQ(C_Initialize(nullptr), CKR_OK);
    fakepcsc::detachReader(0, true); // before anybody looked
    EXPECT_EQ(reportedWhen([] { fakepcsc::removeCard(2); }), "3");
    fakepcsc::detachReader(3, true);
    while (poll() != kNone)
        continue;
    EXPECT_EQ(reportedWhen(fakepcsc::stopService), "2");
}

TEST_F(DesktopReadersTest, WhatHappensBetweenTwoWaitsIsToldByTheNext)
{
    ASSERT_EQ(C_Initialize(nullptr), CKR_OK);
    fakepcsc::addReader("Reader 0");
    EXPECT_EQ(wait(), "1");
    EXPECT_EQ(reportedWhen([] { // though its slot is younger than the wait
                  EXPECT_EQ(slots(), IDs({1}));
                  insert(0);
              }),
              "1");
    fakepcsc::addReader("Reader 1");
    fakepcsc::addReader("Reader 2");
    EXPECT_EQ(wait(), "2");
    EXPECT_EQ(wait(), "3");
    EXPECT_EQ(slots(), IDs({1, 2, 3}));
    fakepcsc::removeCard(0);
    insert(2);
    EXPECT_EQ(wait(), "1");
    EXPECT_EQ(wait(), "3");
    EXPECT_EQ(poll(), kNone);
    insert(2); // another one
    EXPECT_EQ(poll(), "3");
    fakepcsc::removeCard(2);
    insert(2);
    EXPECT_EQ(wait(), "3");
    fakepcsc::detachReader(1, true);
    EXPECT_EQ(wait(), "2");
    // When the readers have been listed, to be waited for.
    fakepcsc::beforeCall("SCardGetStatusChange", 3, [] { fakepcsc::addReader("Reader 3"); });
    EXPECT_EQ(wait(), "4");
    EXPECT_EQ(reportedWhen([] { insert(3); }), "4"); // nobody has asked for its slot
    EXPECT_EQ(reportedWhen([] { insert(0); }), "1"); // told once
    fakepcsc::detachReader(3, true);
    EXPECT_EQ(reportedWhen([] { fakepcsc::attachReader(3); }), "4");
    EXPECT_EQ(reportedWhen([] { // a quick restart that has lost a reader
                  fakepcsc::stopService();
                  fakepcsc::detachReader(0, true);
                  fakepcsc::startService();
              }),
              "1");
    EXPECT_EQ(reportedWhen([] { C_Finalize(nullptr); }), kEnded);
}

TEST_F(DesktopReadersTest, WaitsTakeAnyNumberOfReadersAndOfRestarts)
{
    ASSERT_EQ(C_Initialize(nullptr), CKR_OK);
    for (const int round : {0, 1}) { // PC/SC takes 16 at a time
        for (int i = 0; i < 16; ++i)
            fakepcsc::addReader("Reader " + std::to_string(16 * round + i));
        EXPECT_EQ(slots().size(), 16U * (round + 1));
        while (poll() != kNone)
            continue;
        EXPECT_EQ(reportedWhen([&] { insert(16 * round + 5); }), std::to_string(16 * round + 6));
        for (int i = 0; i < 16 && round == 0; ++i)
            fakepcsc::detachReader(i, true);
    }
    fakepcsc::failCall("SCardGetStatusChange", SCARD_F_COMM_ERROR, 2, 5); // the service ends under the call
    EXPECT_EQ(reportedWhen([] { insert(20); }), "21");
}

TEST_F(DesktopReadersTest, AForkedChildStartsAnewBesideItsParent)
{
    const TraceFile trace;
    start(std::make_shared<vcard::PivCard>());
    ASSERT_EQ(login("123456"), CKR_OK);
    ASSERT_EQ(poll(), kNone);
    const int contexts = fakepcsc::open().contexts;
    std::promise<void> inside;
    std::promise<void> forked;
    fakepcsc::beforeCall("SCardStatus", 1, [&] { inside.set_value(), forked.get_future().wait(); });
    auto otherThread = std::async(std::launch::async, [this] { return signs(); });
    inside.get_future().wait();
    const std::size_t lines = trace.lines().size();
    const pid_t child = fork(); // where that thread does not exist
    if (child == 0) {
        alarm(30);
        const bool good =
            C_CloseAllSessions(1) == CKR_CRYPTOKI_NOT_INITIALIZED && C_Initialize(nullptr) == CKR_OK &&
            C_Initialize(nullptr) == CKR_CRYPTOKI_ALREADY_INITIALIZED && C_Finalize(nullptr) == CKR_OK &&
            slots(true) == IDs({1}) && open() == CKR_OK && login("123456") == CKR_OK && signs() &&
            poll() == kNone && C_Finalize(nullptr) == CKR_OK &&
            C_CloseAllSessions(1) == CKR_CRYPTOKI_NOT_INITIALIZED && fakepcsc::open().handles == 1 &&
            fakepcsc::open().contexts == contexts + 1; // the parent's, and its own until the end
        _exit(good ? 0 : 1); // what the other thread held would be a leak to the sanitizer
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    forked.set_value();
    EXPECT_TRUE(otherThread.get());
    // The child's trace stands between the parent's lines.
    const std::vector<std::string> all = trace.lines();
    ASSERT_GT(all.size(), lines + 100);
    EXPECT_EQ(all[lines + 1].rfind("*** Begin logging at ", 0), 0U);
    EXPECT_EQ(all[all.size() - 2], "C_Sign return: CKR_OK");
}

TEST_F(DesktopReadersTest, AChildForkedBesideTheEndCanWait)
{
    start(std::make_shared<vcard::PivCard>());
    std::promise<void> waiting, left, inside, forked;
    fakepcsc::beforeCall("SCardGetStatusChange", 2, [&] { waiting.set_value(), left.get_future().wait(); });
    auto waiter = std::async(std::launch::async, [] { return wait(); });
    waiting.get_future().wait();
    // While the wait is there it is cancelled over and over.
    fakepcsc::beforeCall("SCardCancel", 3, [&] { inside.set_value(), forked.get_future().wait(); });
    auto end = std::async(std::launch::async, [] { return C_Finalize(nullptr); });
    inside.get_future().wait();
    const pid_t child = fork();
    if (child == 0) {
        alarm(30);
        _exit(C_Initialize(nullptr) == CKR_OK && poll() == kNone ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    left.set_value();
    forked.set_value();
    EXPECT_EQ(end.get(), CKR_OK);
    EXPECT_EQ(waiter.get(), kEnded);
}

} // namespace
