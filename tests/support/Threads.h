/// What a test knows of other threads.
#pragma once

#include <atomic>
#include <fstream>
#include <string>
#include <unistd.h>

/// Until the thread sleeps; it puts its number there first.
inline void awaitSleep(const std::atomic<pid_t>& thread)
{
    for (char state = 0; state != 'S';)
        std::ifstream("/proc/self/task/" + std::to_string(thread) + "/stat").ignore(99, ')') >> state;
}
