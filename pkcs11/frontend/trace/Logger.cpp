#include "pkcs11/frontend/trace/Logger.h"

#include "pkcs11/token/Hex.h"

#include <cstdarg>
#include <cstdio>
#include <string>

namespace PKCS11 {

std::atomic<Logger*> Logger::s_pLogger{nullptr};

void Logger::SetLogger(Logger* logger)
{
    if (logger != s_pLogger)
        delete s_pLogger.exchange(logger);
}

void Logger::FreeLogger()
{
    SetLogger(nullptr);
}

void Logger::SetLoglevel(short level)
{
    if (Logger* installed = logger())
        installed->doSetLoglevel(level);
}

void Logger::Log(short level, const char* text)
{
    if (Logger* installed = logger())
        installed->doLog(level, text);
}

void Logger::Log(short level, const Blob& data)
{
    if (LogInit())
        Log(level, PKCS11_blob2hex(data).c_str());
}

void Logger::Log(short level, const char* text, const Blob& data)
{
    if (LogInit())
        Log(level, (std::string(text) + ": " + PKCS11_blob2hex(data)).c_str());
}

void Logger::LogFormat(short level, const char* format, ...)
{
    if (!LogInit())
        return;
    char line[256];
    std::va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(line, sizeof(line), format, arguments);
    va_end(arguments);
    Log(level, line);
}

} // namespace PKCS11
