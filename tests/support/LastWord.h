/// The last thing that runs in a process, after the library's own end.
#pragma once

#include <functional>
#include <unistd.h>

struct LastWord {
    std::function<int()> exitCode;
    ~LastWord()
    {
        if (exitCode)
            _exit(exitCode());
    }
};
extern LastWord lastWord; // made before everything else
