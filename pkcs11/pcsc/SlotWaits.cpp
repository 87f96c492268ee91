#include "pkcs11/pcsc/SlotWaits.h"

#include "pkcs11/token/Sleep.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <unistd.h>
#include <winscard.h>

namespace PKCS11 {

namespace {

/// Pause between two cancels of a wait, in milliseconds.
constexpr long kCancelInterval = 1;
/// Threads in awaitEnd().
std::atomic<int> endings{0};

/// Process and thread in one number, never 0. After a fork the parent's threads do not exist in the child.
std::uint64_t thisThread()
{
    return static_cast<std::uint64_t>(getpid()) << 32 | static_cast<std::uint32_t>(gettid());
}
bool isThisProcess(std::uint64_t thread)
{
    return thread >> 32 == static_cast<std::uint64_t>(getpid());
}

} // namespace

/// A place for one wait. All accesses are sequentially consistent: a wait that awaitEnd() does not see here
/// has begun after it, and sees that the library is not initialised any more.
struct SlotWaits::Entry {
    /// Of the wait's thread; 0 while the place is free.
    std::atomic<std::uint64_t> thread{0};
    /// How many waits have taken the place.
    std::atomic<unsigned> uses{0};
    std::atomic<PCSCContext> context{0};
    /// The number of the last wait that was abandoned.
    std::atomic<unsigned> abandoned{0};

    bool take()
    {
        std::uint64_t holder = thread;
        if (isThisProcess(holder) || !thread.compare_exchange_strong(holder, thisThread()))
            return false;
        context = 0;
        ++uses;
        return true;
    }
};

/// Places for more waits than an application has; further blocks are added on demand and stay.
struct SlotWaits::Block {
    Entry entries[16];
    std::atomic<Block*> next{nullptr};

    template <class Action>
    void forEach(const Action& action)
    {
        for (Block* block = this; block != nullptr; block = block->next)
            for (Entry& entry : block->entries)
                action(entry);
    }
};

SlotWaits::Block SlotWaits::s_blocks;

SlotWaits::Entry& SlotWaits::claimEntry()
{
    for (Block* block = &s_blocks;; block = block->next) {
        for (Entry& entry : block->entries)
            if (entry.take())
                return entry;
        if (block->next == nullptr) {
            auto fresh = std::make_unique<Block>();
            Block* none = nullptr;
            if (block->next.compare_exchange_strong(none, fresh.get()))
                static_cast<void>(fresh.release());
        }
    }
}

SlotWaits::Wait::Wait() : m_entry(claimEntry()) {}

SlotWaits::Wait::~Wait()
{
    m_entry.context = 0;
    m_entry.thread = 0;
}

void SlotWaits::Wait::setContext(PCSCContext context)
{
    m_entry.context = context;
}

bool SlotWaits::Wait::isAbandoned() const
{
    return m_entry.abandoned == m_entry.uses;
}

bool SlotWaits::cancel()
{
    bool taken = false;
    s_blocks.forEach([&](const Entry& entry) {
        const PCSCContext context = entry.context;
        if (context != 0 && isThisProcess(entry.thread))
            taken = SCardCancel(context) == SCARD_S_SUCCESS || taken;
    });
    return taken;
}

bool SlotWaits::isEnding()
{
    return endings > 0;
}

void SlotWaits::forgetEndings()
{
    endings = 0;
}

void SlotWaits::awaitEnd()
{
    const std::uint64_t self = thisThread();
    ++endings;
    s_blocks.forEach([](Entry& entry) { entry.abandoned = entry.uses.load(); });
    s_blocks.forEach([self](Entry& entry) {
        const unsigned uses = entry.uses;
        for (std::uint64_t thread = entry.thread; isThisProcess(thread) && entry.uses == uses;
             thread = entry.thread) {
            if (thread == self)
                break;
            // PC/SC forgets a cancel that comes before the thread blocks, so it is repeated.
            cancel();
            Sleep(kCancelInterval);
        }
    });
    // A child that a signal handler forked inside of this call begins with no endings (forgetEndings).
    if (isThisProcess(self))
        --endings;
}

} // namespace PKCS11
