#pragma once

#include "pkcs11/frontend/trace/Logger.h"

#include <atomic>
#include <cstdio>
#include <memory>
#include <string>

namespace PKCS11 {

/// The trace in a text file, one record a line. Two threads may log at the same time: their lines interleave.
/// It is the trace of the process that opened it; a forked child writes nothing.
class FileLogger final : public Logger {
public:
    enum Option : unsigned char {
        kAppend = 1,       ///< keep what the file holds
        kTimePrefix = 2,   ///< begin each line with the time stamp and "|"
        kUTC = 4,          ///< time stamps in UTC, with " UTC" after them
        kMilliseconds = 8, ///< ",ddd" after the seconds
        kFlush = 32,       ///< flush after each line
        kBanner = 64,      ///< begin and end banners
    };

    /// Opens the file and sets the threshold to 30. The path is not needed afterwards. Throws
    /// CKR_GENERAL_ERROR (5) when the file cannot be opened.
    FileLogger(const char* path, unsigned char options);
    ~FileLogger() override;

    void doLog(short level, const char* text) override;
    void doSetLoglevel(short level) override { m_level = level; }
    /// The present time as "11/15/2026 17:11:40", with what the options add.
    std::string GetTime() const;

private:
    struct FileCloser {
        void operator()(std::FILE* file) const noexcept { std::fclose(file); }
    };
    /// Room for the longest time stamp.
    using Stamp = char[96];

    bool has(Option option) const { return (m_options & option) != 0; }
    void formatTime(Stamp& out) const;
    void writeLine(const char* first, const char* second = "");

    std::atomic<short> m_level{kFailure};
    unsigned char m_options;
    const int m_process;
    std::unique_ptr<std::FILE, FileCloser> m_file;
};

} // namespace PKCS11
