#include "pkcs11/pcsc/SlotList.h"
#include "tests/support/ReaderFixture.h"

#include <future>
#include <winscard.h>

using namespace PKCS11;
using IDs = std::vector<CK_SLOT_ID>;
using Lines = std::vector<std::string>;

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
        if (failure.empty() && reported)
            return std::to_string(slot);
        EXPECT_EQ(slot, kUntouched);
        return reported ? failure : "cancelled";
    }
    std::string poll() { return wait(CKF_DONT_BLOCK); }
    std::future<std::string> waitInThread()
    {
        return std::async(std::launch::async, [this] { return wait(0); });
    }

    std::unique_ptr<SlotList> m_list = std::make_unique<SlotList>();
};

TEST_F(SlotListTest, DescribesReadersAndTheirCards)
{
    start({"X", std::string(70, 'n'), "Two words"});
    insert(2);
    const CK_SLOT_INFO info = m_list->getSlot(3)->getInfo();
    EXPECT_EQ(std::string(info.slotDescription, info.slotDescription + 64),
              "Two words" + std::string(55, ' '));
    EXPECT_EQ(std::string(info.manufacturerID, info.manufacturerID + 32), "Two words" + std::string(23, ' '));
    EXPECT_EQ(info.flags, CK_FLAGS{CKF_TOKEN_PRESENT | CKF_REMOVABLE_DEVICE | CKF_HW_SLOT});
    EXPECT_EQ(info.hardwareVersion.minor * 16 + info.firmwareVersion.minor, 17);
    fakepcsc::removeCard(2);
    EXPECT_EQ(m_list->getSlot(3)->getInfo().flags, CK_FLAGS{CKF_REMOVABLE_DEVICE | CKF_HW_SLOT});
    EXPECT_EQ(m_list->getSlot(3)->getSlotDescription(), "Two words");
    EXPECT_EQ(m_list->getSlot(2)->getSlotDescription(), std::string(63, 'n'));
    EXPECT_EQ(m_list->getSlot(2)->GetName(), std::string(70, 'n'));
    EXPECT_EQ(m_list->getSlot(1)->getSlotDescription(), "X" + std::string(62, ' '));
    EXPECT_EQ(m_list->getSlot(4), nullptr);
    EXPECT_EQ(m_list->getSlot(0), nullptr);
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
    IDs ids(3, kUntouched);
    CK_ULONG count = 1;
    m_list->getIDList(CK_FALSE, ids.data(), &count);
    EXPECT_EQ(count, 3U);
    EXPECT_EQ(ids, IDs({1, 2, 3}));
    ids.assign(3, kUntouched);
    count = 1;
    EXPECT_EQ(thrownBy([&] { m_list->getIDList(CK_TRUE, ids.data(), &count); }),
              "150|buffer too samll|SlotList::getIdList");
    EXPECT_EQ(count, 2U);
    EXPECT_EQ(ids, IDs(3, kUntouched));
    m_list->getIDList(CK_TRUE, ids.data(), &count);
    EXPECT_EQ(ids, IDs({1, 3, kUntouched}));
    count = 0;
    m_list->getIDList(CK_TRUE, nullptr, &count);
    EXPECT_EQ(count, 2U);
}

TEST_F(SlotListTest, PollsForEvents)
{
    EXPECT_EQ(poll(), "8||");
    start();
    EXPECT_EQ(poll(), "8||"); // learns the states
    EXPECT_EQ(poll(), "8||");
    insert(1);
    insert(2);
    EXPECT_EQ(poll(), "2");
    EXPECT_EQ(poll(), "3");
    EXPECT_EQ(poll(), "8||");
    fakepcsc::removeCard(1);
    EXPECT_EQ(poll(), "2");
    fakepcsc::detachReader(0);
    EXPECT_EQ(poll(), "1");
    EXPECT_EQ(poll(), "8||");
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
    EXPECT_EQ(lines, Lines({"80 A reader", "80 state :\t 0x00010022", "80 prev_state :\t 0x00000012",
                            event + "inserted!"}));
    const auto lastEventAfter = [&](auto change) {
        poll(); // takes the reported slot's present state as known
        change(0);
        poll();
        return lines.back();
    };
    EXPECT_EQ(lastEventAfter(fakepcsc::removeCard), event + "removed!");
    EXPECT_EQ(lastEventAfter(fakepcsc::detachReader), event + "reader detached!");
    EXPECT_EQ(lastEventAfter(fakepcsc::attachReader), event + "reader attached!");
    poll();
    fakepcsc::failCall("SCardGetStatusChange", SCARD_E_CANCELLED, 2);
    m_list->stopWaitForSlotEvent();
    EXPECT_EQ(lines.back(), "80 SlotList::stopWaitForSlotEvent: C_Finalize SCardCancel() succeed.");
    EXPECT_EQ(poll(), "cancelled");
    EXPECT_EQ(lines.back(), "80 SCardGetStatusChange was canceled by application, so just return");
    fakepcsc::failCall("SCardGetStatusChange", SCARD_E_NO_SERVICE);
    poll();
    EXPECT_EQ(lines.back(), "80 rc :\t 0x8010001d");
    Logger::FreeLogger();
}

TEST_F(SlotListTest, WaitsInAThreadWhileOthersWork)
{
    start();
    std::future<std::string> event = waitInThread();
    fakepcsc::awaitBlockedWaits(1);
    EXPECT_FALSE(m_list->getSlot(2)->isTokenPresent());
    insert(1);
    EXPECT_EQ(event.get(), "2");
    event = waitInThread();
    fakepcsc::awaitBlockedWaits(1);
    fakepcsc::removeCard(1);
    EXPECT_EQ(event.get(), "2");
    EXPECT_EQ(fakepcsc::openContexts(), 1);
}

TEST_F(SlotListTest, StopsAWaitThatPCSCForgetsToCancel)
{
    start();
    std::future<std::string> event = waitInThread();
    fakepcsc::awaitBlockedWaits(1);
    m_list->stopWaitForSlotEvent();
    EXPECT_EQ(event.get(), "cancelled");

    // Cancels that PC/SC loses, as it does while the thread is not blocked yet.
    fakepcsc::failCall("SCardCancel", SCARD_S_SUCCESS, 1, 3);
    event = waitInThread();
    fakepcsc::awaitBlockedWaits(1);
    fakepcsc::clearCalls();
    m_list->stopWaitForSlotEvent();
    EXPECT_GE(fakepcsc::callCount("SCardCancel"), 4);
    EXPECT_EQ(event.get(), "cancelled");
    m_list->stopWaitForSlotEvent();
    EXPECT_EQ(fakepcsc::openContexts(), 1);
}

} // namespace
