#pragma once

#include "pkcs11/pcsc/PCSCSystem.h"

namespace PKCS11 {

/// The waits for slot events that are under way in this process, whoever began them.
///
/// They belong to no library object and no slot list, so that whoever deletes one of these can first see the
/// waits out. It takes no lock: a signal handler may interrupt a wait anywhere and end the library or the
/// process.
class SlotWaits {
    struct Entry;
    struct Block;

public:
    /// Takes part from construction to destruction.
    class Wait {
    public:
        Wait();
        ~Wait();
        Wait(const Wait&) = delete;
        Wait& operator=(const Wait&) = delete;

        /// The PC/SC context that the wait may block in; 0 when it has left it.
        void setContext(PCSCContext context);
        /// True when awaitEnd() has come for this one: it is to return, and to touch nothing on the way.
        bool isAbandoned() const;

    private:
        Entry& m_entry;
    };

    /// Cancels each wait that may block now. True when PC/SC took one of the cancels.
    static bool cancel();
    /// Abandons all waits that have begun, and cancels them until they are over, but for those of the calling
    /// thread, which a signal handler may have interrupted. Waits that begin meanwhile are not awaited;
    /// whoever calls this has first put up what they look at before they touch anything.
    static void awaitEnd();
    /// True while a thread is in awaitEnd().
    static bool isEnding();
    /// For the child of a fork, where no thread is.
    static void forgetEndings();

private:
    static Entry& claimEntry();
    static Block s_blocks;
};

} // namespace PKCS11
