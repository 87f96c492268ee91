#pragma once

#include "pkcs11/pcsc/SlotWaits.h"

#include <atomic>

namespace PKCS11 {

/// One wait for slot events and its PC/SC context, so that it does not hold up other waits nor the other
/// calls. Once the wait is abandoned, the slot list that it came from may be gone.
class WaitContext {
public:
    /// Takes the idle context, if there is one.
    explicit WaitContext(std::atomic<PCSCContext>& idle);
    ~WaitContext() { release(); }
    WaitContext(const WaitContext&) = delete;
    WaitContext& operator=(const WaitContext&) = delete;

    /// Establishes a context unless it has one. The PC/SC result.
    long establish();
    /// Releases it, if it has one. The PC/SC result.
    long release();
    /// Leaves it idle for the next wait.
    void giveBack(std::atomic<PCSCContext>& idle);
    /// 0 while there is none.
    PCSCContext context() const { return m_context; }
    bool isAbandoned() const { return m_wait.isAbandoned(); }

private:
    SlotWaits::Wait m_wait;
    PCSCContext m_context;
};

} // namespace PKCS11
