#pragma once

#include "pkcs11/token/Blob.h"

#include <atomic>

namespace PKCS11 {

/// The process-wide trace. One logger is installed at a time; without one every operation here does nothing.
/// Level 80 is trace, 30 is failure; a line is written when its level is at most the threshold.
class Logger {
public:
    static constexpr short kTrace = 80;
    static constexpr short kFailure = 30;

    Logger() = default;
    Logger(const Logger&) = delete;
    Logger& operator=(const Logger&) = delete;
    virtual ~Logger() = default;
    virtual void doLog(short level, const char* text) = 0;
    virtual void doSetLoglevel(short level) = 0;

    /// True when a logger is installed. Callers test it before they format a line.
    static bool LogInit() noexcept { return logger() != nullptr; }
    /// Deletes the installed logger and installs this one, which it then owns.
    static void SetLogger(Logger* logger);
    /// Deletes the installed logger.
    static void FreeLogger();
    /// The installed logger passes over lines of a higher level.
    static void SetLoglevel(short level);

    static void Log(short level, const char* text);
    /// The bytes as hexadecimal digits. Belongs to the interface; nothing in the library calls it.
    static void Log(short level, const Blob& data);
    /// "text: digits" in one line.
    static void Log(short level, const char* text, const Blob& data);
    /// Formats as printf does, up to 255 characters, and only when a logger is installed.
    static void LogFormat(short level, const char* format, ...) __attribute__((format(printf, 2, 3)));

private:
    static Logger* logger() noexcept { return s_pLogger.load(std::memory_order_acquire); }

    static std::atomic<Logger*> s_pLogger;
};

} // namespace PKCS11
