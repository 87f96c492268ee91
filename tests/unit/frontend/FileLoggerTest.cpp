#include "pkcs11/frontend/trace/FileLogger.h"

#include "pkcs11/PKCS11Exception.h"
#include "tests/support/TraceFile.h"

#include <algorithm>
#include <fcntl.h>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <sys/mman.h>
#include <unistd.h>

namespace PKCS11 {
namespace {

const std::string kPath = "/proc/self/fd/" + std::to_string(memfd_create("logger", 0));

/// The file, each digit shown as "d".
std::string content()
{
    std::ostringstream text;
    text << std::ifstream(kPath).rdbuf();
    std::string shown = text.str();
    std::replace_if(shown.begin(), shown.end(), isdigit, 'd');
    return shown;
}

TEST(FileLoggerTest, FileHasBannersAndStampedLinesUpToTheThreshold)
{
    const std::string stamp = "dd/dd/dddd dd:dd:dd", stars(50, '*');
    {
        const int descriptor = dup(0);
        close(descriptor);
        FileLogger logger(kPath.c_str(), kTraceOptions);
        EXPECT_EQ(fcntl(descriptor, F_GETFD), FD_CLOEXEC); // no program that is started gets the file
        logger.doLog(31, "above the threshold");
        logger.doLog(30, "first");
        logger.doSetLoglevel(99);
        logger.doLog(80, "");
        EXPECT_EQ(content(),
                  stars + "\n*** Begin logging at " + stamp + "\n" + stamp + "|first\n" + stamp + "|\n");
    }
    EXPECT_NE(content().find("|\n*** End logging at " + stamp + "\n" + stars + "\n\n"), std::string::npos);
    FileLogger(kPath.c_str(), 0).doLog(0, "truncated");
    FileLogger(kPath.c_str(),
               FileLogger::kAppend | FileLogger::kTimePrefix | FileLogger::kUTC | FileLogger::kMilliseconds)
        .doLog(0, "appended");
    EXPECT_EQ(content(), "truncated\n" + stamp + ",ddd UTC|appended\n");
    EXPECT_NO_THROW(FileLogger("/dev/null", kTraceOptions)); // which cannot be cut
    EXPECT_THROW(FileLogger("/nowhere/log.txt", kTraceOptions), PKCS11Exception);
}

TEST(FileLoggerTest, APathThatCannotBeOpenedIsTriedAgain)
{
    SystemWrapper library;
    SystemWrapper::s_logPath = "/nowhere/log.txt";
    library.InitLogger();
    SystemWrapper::s_logPath = kPath.c_str();
    library.InitLogger();
    Logger::Log(80, "now");
    EXPECT_NE(content().find("|now\n"), std::string::npos);
    library.InitLogger();
    EXPECT_NE(content().find("|now\n"), std::string::npos); // the file is not begun anew
    SystemWrapper::s_logPath = "";
}

TEST(FileLoggerTest, AForkedChildKeepsItsOwnFiles)
{
    const int descriptor = dup(0);
    close(descriptor);
    auto logger = std::make_unique<FileLogger>(kPath.c_str(), 0);
    const auto endInChild = [&] {
        dup2(0, descriptor); // a daemon closes what it inherits, and opens others
        logger.reset();
        _exit(fcntl(descriptor, F_GETFD) == -1 ? 1 : 0);
    };
    EXPECT_EXIT(endInChild(), ::testing::ExitedWithCode(0), "");
}

TEST(FileLoggerTest, TimeIsLocalOrUTC)
{
    setenv("TZ", "XYZ-5:30", 1);
    tzset();
    const auto shown = [](unsigned char options) {
        std::tm parts{};
        strptime(FileLogger(kPath.c_str(), options).GetTime().c_str(), "%m/%d/%Y %H:%M:%S", &parts);
        return std::difftime(timegm(&parts), std::time(nullptr));
    };
    EXPECT_NEAR(shown(4), 0, 5);
    EXPECT_NEAR(shown(0), 5.5 * 3600, 5);
    unsetenv("TZ");
    tzset();
}

} // namespace
} // namespace PKCS11
