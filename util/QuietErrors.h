#pragma once

#include <new>
#include <openssl/err.h>

/// Takes the libcrypto errors of its lifetime out of the thread's error queue, which the application shares:
/// failures that do not matter leave nothing there, and what stood there before stays.
class QuietErrors {
public:
    QuietErrors() { ERR_set_mark(); }
    QuietErrors(const QuietErrors&) = delete;
    QuietErrors& operator=(const QuietErrors&) = delete;
    ~QuietErrors() { ERR_pop_to_mark(); }

    /// Throws std::bad_alloc when memory was short: then a failure says nothing about the value. Behind
    /// errors that stood there before it is not seen.
    void requireMemory() const
    {
        while (const unsigned long code = m_isAlone ? ERR_get_error() : 0)
            if (ERR_GET_REASON(code) == ERR_R_MALLOC_FAILURE)
                throw std::bad_alloc();
    }

private:
    const bool m_isAlone = ERR_peek_error() == 0;
};
