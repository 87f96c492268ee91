#pragma once

#include <openssl/err.h>

/// Takes the libcrypto errors of its lifetime out of the thread's error queue, which the application shares:
/// failures that do not matter leave nothing there, and what stood there before stays.
class QuietErrors {
public:
    QuietErrors() { ERR_set_mark(); }
    QuietErrors(const QuietErrors&) = delete;
    QuietErrors& operator=(const QuietErrors&) = delete;
    ~QuietErrors() { ERR_pop_to_mark(); }
};
