// What the desktop edition does for programs with many threads, and beside other programs on the same card.
#include "tests/support/CryptokiFixture.h"
#include "tests/support/Families.h"
#include "tests/support/LastWord.h"
#include "tests/support/Threads.h"
#include "tools/vcard/PivCard.h"

#include <atomic>
#include <future>
#include <thread>
#include <winscard.h>

namespace {

class DesktopProgramsTest : public CryptokiFixture {
protected:
    /// Another program that has selected an application of its own, and is done with it.
    void useCardElsewhere()
    {
        SCARDCONTEXT context = 0;
        SCARDHANDLE handle = 0;
        DWORD protocol = 0;
        ASSERT_EQ(SCardEstablishContext(SCARD_SCOPE_USER, nullptr, nullptr, &context), 0);
        ASSERT_EQ(
            SCardConnect(context, "Reader 0", SCARD_SHARE_SHARED, SCARD_PROTOCOL_T1, &handle, &protocol), 0);
        ASSERT_EQ(SCardBeginTransaction(handle), 0);
        m_card->reset(); // its application is another one, and its PIN is none of ours
        ASSERT_EQ(SCardEndTransaction(handle, SCARD_LEAVE_CARD), 0);
        SCardDisconnect(handle, SCARD_LEAVE_CARD);
        SCardReleaseContext(context);
    }
    const std::shared_ptr<vcard::PivCard> m_card = std::make_shared<vcard::PivCard>();
    const Bytes m_data = vcard::fromText("a DigestInfo");
};

TEST_F(DesktopProgramsTest, ThreadsSearchSignLogInAndWaitBesideEachOther)
{
    start(m_card);
    std::thread first([] { wait(); });
    fakepcsc::awaitBlockedWaits(1);
    EXPECT_EQ(C_Finalize(nullptr), CKR_OK);
    first.join();
    const int other = fakepcsc::addReader("Reader 1");
    ASSERT_EQ(all({C_Initialize(nullptr), open(), login("123456")}), CKR_OK);
    const auto owner = publicKeyOf(m_card->certificate(0x9A));
    std::atomic<int> good{0};
    std::atomic<bool> failed{false};
    const auto work = [&](int number) {
        CK_SESSION_HANDLE session = 0;
        const auto is = [&](CK_RV rv) { return rv == CKR_OK || !(failed = true); };
        for (int i = 0; i < 20 && !failed; ++i) {
            if (!is(C_OpenSession(1, CKF_SERIAL_SESSION, nullptr, nullptr, &session)))
                return;
            CK_OBJECT_CLASS kind = number % 2 == 0 ? CKO_PRIVATE_KEY : CKO_CERTIFICATE;
            CK_ATTRIBUTE wanted{CKA_CLASS, &kind, sizeof kind};
            CK_OBJECT_HANDLE handle = 0;
            CK_ULONG count = 0;
            std::vector<CK_OBJECT_HANDLE> found;
            is(C_FindObjectsInit(session, &wanted, 1));
            while (is(C_FindObjects(session, &handle, 1, &count)) && count == 1)
                found.push_back(handle);
            is(C_FindObjectsFinal(session));
            if (found.size() != 4)
                failed = true;
            Bytes data = m_data;
            Bytes signature(256);
            CK_ULONG length = signature.size();
            CK_MECHANISM mechanism{CKM_RSA_PKCS, nullptr, 0};
            if (kind == CKO_PRIVATE_KEY && is(C_SignInit(session, &mechanism, found[0])) &&
                is(C_Sign(session, data.data(), data.size(), signature.data(), &length)) &&
                isSignature(owner, m_data, signature))
                ++good;
            if (kind == CKO_CERTIFICATE) // is logged in already
                failed = failed || C_Login(session, CKU_USER, data.data(), 6) != CKR_USER_ALREADY_LOGGED_IN;
            is(C_CloseSession(session));
        }
    };
    std::string waited;
    std::thread waiter([&] { waited = wait(), waited += " " + wait(); });
    fakepcsc::awaitBlockedWaits(1);
    std::vector<std::thread> threads;
    threads.reserve(8);
    for (int number = 0; number < 8; ++number)
        threads.emplace_back(work, number);
    fakepcsc::insertCard(other, std::make_shared<vcard::PivCard>());
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_FALSE(failed);
    EXPECT_EQ(good, 4 * 20);
    EXPECT_EQ(C_Finalize(nullptr), CKR_OK);
    waiter.join();
    EXPECT_EQ(waited, std::string("2 ") + kEnded);
}

TEST_F(DesktopProgramsTest, EachCallHasTheCardToItselfAndTrustsNoSelection)
{
    start(m_card);
    for (const char* pin : {"123456", "000000"}) {
        useCardElsewhere();
        EXPECT_EQ(login(pin), pin[0] == '1' ? CKR_OK : CKR_USER_ALREADY_LOGGED_IN);
    }
    const CK_OBJECT_HANDLE key = find(CKO_PRIVATE_KEY);
    // Between any two commands of a call another program tries, and has to wait for its end.
    fakepcsc::clearCalls();
    std::thread other;
    fakepcsc::beforeCall("SCardTransmit", 3, [&] { other = std::thread([this] { useCardElsewhere(); }); });
    EXPECT_TRUE(
        isSignature(publicKeyOf(m_card->certificate(0x9A)), m_data, sign(key, CKM_RSA_PKCS, m_data).bytes));
    other.join();
    fakepcsc::beforeCall("SCardBeginTransaction", 1, [this] { fakepcsc::resetCard(m_reader); });
    fakepcsc::beforeCall("SCardTransmit", 1, [] { EXPECT_EQ(fakepcsc::open().transactions, 1); });
    EXPECT_TRUE(
        isSignature(publicKeyOf(m_card->certificate(0x9A)), m_data, sign(key, CKM_RSA_PKCS, m_data).bytes));
    ASSERT_EQ(C_Logout(m_session), CKR_OK);
    useCardElsewhere();
    EXPECT_EQ(setPin("123456", "1234567"), CKR_OK);
    EXPECT_EQ(setPin("1234567", "123456"), CKR_OK);
    EXPECT_EQ(m_card->pin().triesLeft(), 3);
    // From memory alone.
    fakepcsc::clearCalls();
    EXPECT_EQ(findAll().size(), 8U);
    tokenInfo();
    EXPECT_EQ(fakepcsc::callCount("SCardBeginTransaction"), 0);
}

TEST_F(DesktopProgramsTest, ACardThatAnotherProgramHasResetIsLeftToIt)
{
    start(m_card);
    ASSERT_EQ(login("123456"), CKR_OK);
    SCARDCONTEXT context = 0;
    SCARDHANDLE handle = 0;
    DWORD protocol = SCARD_PROTOCOL_T1;
    ASSERT_EQ(SCardEstablishContext(SCARD_SCOPE_USER, nullptr, nullptr, &context) |
                  SCardConnect(context, "Reader 0", SCARD_SHARE_SHARED, protocol, &handle, &protocol) |
                  SCardReconnect(handle, SCARD_SHARE_SHARED, protocol, SCARD_RESET_CARD, &protocol),
              0);
    const auto expectNoReset = [handle] {
        EXPECT_EQ(SCardBeginTransaction(handle), 0); // else SCARD_W_RESET_CARD
        EXPECT_EQ(SCardEndTransaction(handle, SCARD_LEAVE_CARD), 0);
    };
    fakepcsc::beforeCall("SCardTransmit", 1, [] { EXPECT_EQ(fakepcsc::open().transactions, 1); });
    EXPECT_EQ(sign(find(CKO_PRIVATE_KEY), CKM_RSA_PKCS, m_data).rv, CKR_OK);
    expectNoReset();
    // The service may be without a protocol for the card just then, and the next reset may be near.
    const CK_OBJECT_HANDLE key = find(CKO_PRIVATE_KEY);
    for (const LONG result : {SCARD_E_PROTO_MISMATCH, SCARD_S_SUCCESS}) { // but no protocol
        fakepcsc::beforeCall("SCardTransmit", 3, [this] { fakepcsc::loseProtocol(m_reader); }); // and its PIN
        fakepcsc::failCall("SCardReconnect", result, 1, 2);
        EXPECT_EQ(sign(key, CKM_RSA_PKCS, m_data).rv, CKR_OK);
    }
    for (const auto& [resets, failures] : {std::pair(3, 2), {3, 100}, {4, 0}, {3, 0}}) {
        for (int nth = 1; nth <= resets; ++nth)
            fakepcsc::beforeCall("SCardBeginTransaction", nth, [this] { fakepcsc::resetCard(m_reader); });
        fakepcsc::failCall("SCardReconnect", SCARD_E_PROTO_MISMATCH, 1, failures);
        const bool isTooMuch = resets == 4 || failures == 100;
        EXPECT_EQ(sign(key, CKM_RSA_PKCS, m_data).rv, isTooMuch ? CKR_GENERAL_ERROR : CKR_OK);
        fakepcsc::forgetPlans();
    }
    ASSERT_EQ(SCardReconnect(handle, SCARD_SHARE_SHARED, protocol, SCARD_LEAVE_CARD, &protocol), 0);
    EXPECT_EQ(sign(key, CKM_RSA_PKCS, m_data).length, 256U);
    expectNoReset();
    fakepcsc::unpowerCard(m_reader);
    for (const int nth : {2, 3}) // after the reconnection
        fakepcsc::beforeCall("SCardStatus", nth, [this] { fakepcsc::unpowerCard(m_reader); });
    EXPECT_EQ(sign(key, CKM_RSA_PKCS, m_data).rv, CKR_OK);
    for (const int failures : {2, 100}) { // as may a session on a card that has just come
        fakepcsc::insertCard(m_reader, m_card);
        fakepcsc::failCall("SCardConnect", SCARD_E_PROTO_MISMATCH, 1, failures);
        EXPECT_EQ(C_OpenSession(1, CKF_SERIAL_SESSION, nullptr, nullptr, &m_session),
                  failures == 2 ? CKR_OK : CKR_TOKEN_NOT_RECOGNIZED);
    }
    SCardDisconnect(handle, SCARD_LEAVE_CARD);
    SCardReleaseContext(context);
}

TEST_F(DesktopProgramsTest, ALoginEndsWhenTheCardRefusesItsPin)
{
    start(m_card);
    ASSERT_EQ(login("123456"), CKR_OK);
    const CK_OBJECT_HANDLE key = find(CKO_PRIVATE_KEY);
    answer("6F00", 2); // says nothing about the PIN
    EXPECT_EQ(sign(key, CKM_RSA_PKCS, m_data).rv, CKR_PIN_INCORRECT);
    EXPECT_EQ(sign(key, CKM_RSA_PKCS, m_data).rv, CKR_OK);
    m_card->transmit(bytes("0024008010 '123456' FFFF '654321' FFFF")); // by another program
    EXPECT_EQ(sign(key, CKM_RSA_PKCS, m_data).rv, CKR_PIN_INCORRECT);
    EXPECT_EQ(sign(key, CKM_RSA_PKCS, m_data).rv, CKR_USER_NOT_LOGGED_IN);
    EXPECT_EQ(all({login("654321"), sign(key, CKM_RSA_PKCS, m_data).rv}), CKR_OK);
    fakepcsc::insertCard(m_reader, familyNamed("atrust").make()); // selects before it shows the PIN
    ASSERT_EQ(all({open(), login("123456")}), CKR_OK);
    EXPECT_EQ(setPin("000000", "123456"), CKR_PIN_INCORRECT);
    answer("6A82", 1);
    EXPECT_EQ(sign(find(CKO_PRIVATE_KEY), CKM_RSA_PKCS, m_data).rv, CKR_DEVICE_ERROR);
    EXPECT_EQ(sign(find(CKO_PRIVATE_KEY), CKM_RSA_PKCS, m_data).rv, CKR_OK);
}

TEST_F(DesktopProgramsTest, ACallInsideACallLeavesItTheCard)
{
    start(m_card);
    const int other = fakepcsc::addReader("Reader 1");
    ASSERT_EQ(login("123456"), CKR_OK);
    CK_ULONG slots = 0;
    ASSERT_EQ(C_GetSlotList(CK_FALSE, nullptr, &slots), CKR_OK);
    const CK_OBJECT_HANDLE key = find(CKO_PRIVATE_KEY);
    fakepcsc::beforeCall("SCardTransmit", 2, [&] { // as from a signal handler
        tokenInfo();
        EXPECT_EQ(fakepcsc::open().transactions, 1);
        std::thread holder([&] {
            fakepcsc::awaitBlockedWaits(1);
            fakepcsc::insertCard(other, std::make_shared<vcard::PivCard>());
        });
        EXPECT_EQ(wait(), "2");
        holder.join();
        EXPECT_EQ(fakepcsc::open().transactions, 1);
    });
    EXPECT_EQ(sign(key, CKM_RSA_PKCS, m_data).rv, CKR_OK);
    EXPECT_EQ(fakepcsc::open().transactions, 0);
}

TEST_F(DesktopProgramsTest, ACallThatDoesNotGetTheCardSaysWhy)
{
    start(m_card);
    ASSERT_EQ(login("123456"), CKR_OK);
    const CK_OBJECT_HANDLE key = find(CKO_PRIVATE_KEY);
    fakepcsc::failCall("SCardBeginTransaction", SCARD_F_COMM_ERROR);
    EXPECT_EQ(sign(key, CKM_RSA_PKCS, m_data).rv, CKR_GENERAL_ERROR);
    EXPECT_EQ(sign(key, CKM_RSA_PKCS, m_data).length, 256U);
    vcard::PivOptions options;
    options.pin = "654321";
    fakepcsc::beforeCall("SCardBeginTransaction", 1,
                         [&] { fakepcsc::insertCard(m_reader, std::make_shared<vcard::PivCard>(options)); });
    EXPECT_EQ(sign(key, CKM_RSA_PKCS, m_data).rv, CKR_DEVICE_REMOVED);
    EXPECT_EQ(login("654321"), CKR_SESSION_HANDLE_INVALID);
    EXPECT_EQ(all({open(), login("654321")}), CKR_OK);
}

TEST_F(DesktopProgramsTest, ExitLeavesTheCallsOfOtherThreadsWhatTheyUse)
{
    const auto exitBesideCalls = [this] {
        alarm(30);
        start(m_card);
        // None of this is destroyed.
        static auto &inside = *new std::promise<void>, &ended = *new std::promise<void>;
        fakepcsc::beforeCall("SCardTransmit", 1, [] { inside.set_value(), ended.get_future().wait(); });
        answer("9000", 1); // the simulated card computes nothing any more
        answer("9000", 2);
        static auto& calls = *new std::vector<std::future<CK_RV>>;
        calls.push_back(std::async(std::launch::async, [this] { return login("123456"); }));
        inside.get_future().wait();
        std::atomic<pid_t> waiting{0};
        calls.push_back(
            std::async(std::launch::async, [&] { return waiting = gettid(), C_Initialize(nullptr); }));
        awaitSleep(waiting);
        lastWord.exitCode = [] {
            ended.set_value();
            return calls[0].get() == CKR_OK && calls[1].get() == CKR_CRYPTOKI_NOT_INITIALIZED ? 0 : 2;
        };
        std::exit(1);
    };
    EXPECT_EXIT(exitBesideCalls(), ::testing::ExitedWithCode(0), "");
    const auto exitInsideACall = [this] { // as a signal handler may; PC/SC would not let it in
        start(m_card);
        fakepcsc::beforeCall("SCardTransmit", 1, [] { std::exit(1); });
        lastWord.exitCode = [] { return fakepcsc::callCount("SCardDisconnect"); };
        login("123456");
    };
    EXPECT_EXIT(exitInsideACall(), ::testing::ExitedWithCode(0), "");
}

} // namespace
