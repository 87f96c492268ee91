#include "pkcs11/pcsc/SlotList.h"
#include "tests/support/ReaderFixture.h"

#include <future>
#include <winscard.h>

using namespace PKCS11;

namespace {

constexpr CK_SLOT_ID kUntouched = 77;

/// Readers 0, 1, 2 are the slots 1, 2, 3.
class SlotListTest : public ::testing::Test {
protected:
    void start(const std::vector<std::string>& readers = {"A reader", "B reader", "C reader"})
    {
        fakepcsc::reset();
        for (const std::string& reader : readers)
            fakepcsc::addReader(reader);
        PCSCSystem* system = CreatePCSCSystem(nullptr);
        for (const std::string& reader : system->listReaders())
            m_list->addSlot(std::make_unique<PCSCSlot>(nullptr, system, reader.c_str()));
        system->release();
    }
    void TearDown() override
    {
        m_list.reset();
        EXPECT_EQ(fakepcsc::openContexts(), 0);
    }
    static void insert(int reader) { fakepcsc::insertCard(reader, std::make_shared<scripted::Card>()); }
    /// The slot that the wait reported, what it threw, or "cancelled".
    std::string wait(CK_FLAGS flags)
    {
        CK_SLOT_ID slot = kUntouched;
        bool reported = true;
        const std::string failure =
            thrownBy([&] { reported = m_list->waitForSlotEvent(flags, &slot, nullptr); });
        EXPECT_EQ(slot == kUntouched, !failure.empty() || !reported);
        return !failure.empty() ? failure : reported ? std::to_string(slot) : "cancelled";
    }
    std::string poll() { return wait(CKF_DONT_BLOCK); }
    std::future<std::string> waitInThread()
    {
        auto event = std::async(std::launch::async, [this] { return wait(0); });
        fakepcsc::awaitBlockedWaits(1);
        return event;
    }

    std::unique_ptr<SlotList> m_list = std::make_unique<SlotList>();
};

TEST_F(SlotListTest, DescribesReadersAndTheirCards)
{
    start({"X", std::string(70, 'n'), "Two words"});
    insert(2);
    const CK_SLOT_INFO info = m_list->getSlot(3)->getInfo();
    EXPECT_EQ(std::string(info.slotDescription, info.manufacturerID + 32),
              "Two words" + std::string(55, ' ') + "Two words" + std::string(23, ' '));
    fakepcsc::removeCard(2);
    EXPECT_EQ(info.flags - m_list->getSlot(3)->getInfo().flags, CK_FLAGS{CKF_TOKEN_PRESENT});
    EXPECT_EQ(m_list->getSlot(3)->getSlotDescription(), "Two words");
    EXPECT_EQ(m_list->getSlot(2)->getSlotDescription(), std::string(63, 'n'));
    EXPECT_EQ(m_list->getSlot(1)->getSlotDescription(), "X" + std::string(62, ' '));
    // Waiting knows the cut name only.
    EXPECT_EQ(poll(),
              "6|SCardGetStatusChange failed with getting initial slot status!|SlotList::waitForSlotEvent");
    fakepcsc::failCall("SCardGetStatusChange", SCARD_E_UNKNOWN_READER);
    EXPECT_EQ(thrownBy([&] { m_list->getSlot(1)->getInfo(); }),
              "30|could not connect to reader (wrong READERNAME set?)|PCSCSlot::IsTokenPresent");
}

TEST_F(SlotListTest, ListsSlotsAndThoseWithACard)
{
    start();
    insert(0);
    insert(2);
    std::vector<CK_SLOT_ID> ids(3, kUntouched);
    const auto list = [&](CK_BBOOL withCard, CK_ULONG room, CK_SLOT_ID* out) {
        std::string text = thrownBy([&] { m_list->getIDList(withCard, out, &room); });
        for (const CK_SLOT_ID id : ids)
            text += " " + std::to_string(id);
        ids.assign(3, kUntouched);
        return text + " of " + std::to_string(room);
    };
    EXPECT_EQ(list(CK_FALSE, 1, ids.data()), " 1 2 3 of 3");
    EXPECT_EQ(list(CK_TRUE, 1, ids.data()), "150|buffer too samll|SlotList::getIdList 77 77 77 of 2");
    EXPECT_EQ(list(CK_TRUE, 2, ids.data()), " 1 3 77 of 2");
    EXPECT_EQ(list(CK_TRUE, 0, nullptr), " 77 77 77 of 2");
}

TEST_F(SlotListTest, PollsForEvents)
{
    EXPECT_EQ(poll(), "8||");
    start();
    EXPECT_EQ(poll(), "8||"); // learns the states
    insert(1);
    insert(2);
    for (const char* event : {"2", "3", "8||"})
        EXPECT_EQ(poll(), event);
    fakepcsc::removeCard(1);
    fakepcsc::detachReader(0);
    for (const char* event : {"1", "2", "8||"})
        EXPECT_EQ(poll(), event);
    fakepcsc::attachReader(0);
    EXPECT_EQ(poll(), "1");
}

TEST_F(SlotListTest, SurvivesFailuresOfTheService)
{
    start();
    const std::string where = "|SlotList::waitForSlotEvent";
    fakepcsc::failCall("SCardEstablishContext", SCARD_E_NO_SERVICE);
    EXPECT_EQ(poll(), "6|Cannot establish PCSC context!" + where);
    fakepcsc::failCall("SCardGetStatusChange", SCARD_E_NO_SERVICE, 2);
    EXPECT_EQ(poll(), "6|SCardGetStatusChange failed with catching slot event" + where);
    EXPECT_EQ(fakepcsc::openContexts(), 1);
    EXPECT_EQ(poll(), "8||");
}

TEST_F(SlotListTest, TracesWhatItSees)
{
    start({"A reader"});
    poll();
    insert(0);
    std::vector<std::string> lines;
    Logger::SetLogger(std::make_unique<TraceRecorder>(lines).release());
    EXPECT_EQ(poll(), "1");
    const std::string event = "80 SlotList::waitForSlotEvent -> smart card ";
    EXPECT_EQ(lines, std::vector<std::string>({"80 A reader", "80 state :\t 0x00010022",
                                               "80 prev_state :\t 0x00000012", event + "inserted!"}));
    const auto lastAfter = [&](const std::function<void()>& change) {
        poll(); // takes the reported slot's present state as known
        change();
        poll();
        return lines.back();
    };
    EXPECT_EQ(lastAfter([] { fakepcsc::removeCard(0); }), event + "removed!");
    EXPECT_EQ(lastAfter([] { fakepcsc::detachReader(0); }), event + "reader detached!");
    EXPECT_EQ(lastAfter([] { fakepcsc::attachReader(0); }), event + "reader attached!");
    EXPECT_EQ(lastAfter([&] {
                  fakepcsc::failCall("SCardGetStatusChange", SCARD_E_CANCELLED, 2);
                  m_list->stopWaitForSlotEvent();
                  EXPECT_EQ(lines.back(),
                            "80 SlotList::stopWaitForSlotEvent: C_Finalize SCardCancel() succeed.");
              }),
              "80 SCardGetStatusChange was canceled by application, so just return");
    fakepcsc::failCall("SCardGetStatusChange", SCARD_E_NO_SERVICE);
    poll();
    EXPECT_EQ(lines.back(), "80 rc :\t 0x8010001d");
    Logger::FreeLogger();
}

TEST_F(SlotListTest, WaitsUntilAnEventOrItsCancellation)
{
    start();
    std::future<std::string> event = waitInThread();
    EXPECT_FALSE(m_list->getSlot(2)->isTokenPresent());
    insert(1);
    EXPECT_EQ(event.get(), "2");
    event = waitInThread();
    fakepcsc::removeCard(1);
    EXPECT_EQ(event.get(), "2");

    // Cancels that PC/SC loses, as it does while the thread is not blocked yet.
    fakepcsc::failCall("SCardCancel", SCARD_S_SUCCESS, 1, 3);
    event = waitInThread();
    fakepcsc::clearCalls();
    m_list->stopWaitForSlotEvent();
    EXPECT_GE(fakepcsc::callCount("SCardCancel"), 4);
    EXPECT_EQ(event.get(), "cancelled");
    m_list->stopWaitForSlotEvent();
    EXPECT_EQ(fakepcsc::openContexts(), 1);
}

} // namespace
