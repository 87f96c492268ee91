#include "pkcs11/frontend/trace/FileLogger.h"

#include "pkcs11/PKCS11Exception.h"

#include <cerrno>
#include <cstring>
#include <ctime>
#include <unistd.h>

namespace PKCS11 {

namespace {

constexpr char kStars[] = "**************************************************";
static_assert(sizeof(kStars) == 50 + 1, "a banner line has 50 stars");

constexpr long kNanosecondsPerMillisecond = 1000000;

} // namespace

FileLogger::FileLogger(const char* path, unsigned char options) : m_options(options), m_process(getpid())
{
    // Lines are always written at the end: a forked child may add its own.
    m_file.reset(std::fopen(path, "ae"));
    if (m_file == nullptr || (!has(kAppend) && ftruncate(fileno(m_file.get()), 0) != 0 && errno != EINVAL))
        throw PKCS11Exception(CKR_GENERAL_ERROR, "log file cannot be opened", "FileLogger::FileLogger");
    if (has(kBanner)) {
        writeLine(kStars);
        writeLine("*** Begin logging at ", GetTime().c_str());
    }
}

FileLogger::~FileLogger()
{
    if (m_process != getpid())
        static_cast<void>(m_file.release()); // a forked child may have a file of its own under that number
    if (!has(kBanner) || m_file == nullptr)
        return;
    Stamp stamp;
    formatTime(stamp);
    writeLine("*** End logging at ", stamp);
    writeLine(kStars);
    writeLine("");
}

void FileLogger::doLog(short level, const char* text)
{
    if (level > m_level || m_process != getpid())
        return;
    if (!has(kTimePrefix)) {
        writeLine(text);
        return;
    }
    Stamp stamp;
    formatTime(stamp);
    std::strncat(stamp, "|", sizeof(stamp) - std::strlen(stamp) - 1);
    writeLine(stamp, text);
}

std::string FileLogger::GetTime() const
{
    Stamp stamp;
    formatTime(stamp);
    return stamp;
}

void FileLogger::formatTime(Stamp& out) const
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    std::tm parts{};
    if (has(kUTC))
        gmtime_r(&now.tv_sec, &parts);
    else
        localtime_r(&now.tv_sec, &parts);
    const std::size_t length = std::strftime(out, sizeof(out), "%m/%d/%Y %H:%M:%S", &parts);
    if (has(kMilliseconds)) {
        const int milliseconds = static_cast<int>(now.tv_nsec / kNanosecondsPerMillisecond);
        std::snprintf(out + length, sizeof(out) - length, ",%03d", milliseconds);
    }
    if (has(kUTC))
        std::strncat(out, " UTC", sizeof(out) - std::strlen(out) - 1);
}

void FileLogger::writeLine(const char* first, const char* second)
{
    // Errors are ignored: no call depends on its trace. The stream's own lock keeps a line in one piece.
    std::FILE* file = m_file.get();
    flockfile(file);
    std::fputs(first, file);
    std::fputs(second, file);
    std::fputc('\n', file);
    if (has(kFlush))
        std::fflush(file);
    funlockfile(file);
}

} // namespace PKCS11
