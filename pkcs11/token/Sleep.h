#pragma once

#include <chrono>
#include <thread>

namespace PKCS11 {

/// Sleeps for so many milliseconds.
inline void Sleep(long ms)
{
    std::this_thread::sleep_for(std::chrono::milliseconds(ms));
}

} // namespace PKCS11
