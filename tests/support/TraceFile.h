/// The library's trace in tests.
#pragma once

#include "pkcs11/frontend/SystemWrapper.h"
#include "pkcs11/frontend/trace/FileLogger.h"

#include <fstream>
#include <string>
#include <sys/mman.h>
#include <utility>
#include <vector>

/// As the library opens it.
constexpr unsigned char kTraceOptions =
    PKCS11::FileLogger::kTimePrefix | PKCS11::FileLogger::kFlush | PKCS11::FileLogger::kBanner;

/// The trace in memory of this test process, read from where the object was made.
class TraceFile {
public:
    TraceFile()
    {
        static const std::string path = "/proc/self/fd/" + std::to_string(memfd_create("trace", 0));
        SystemWrapper::s_logPath = path.c_str();
        C_GetFunctionList(nullptr); // the library has its trace and opens none later
        PKCS11::Logger::FreeLogger();
        PKCS11::Logger::SetLogger(new PKCS11::FileLogger(path.c_str(), kTraceOptions));
        PKCS11::Logger::SetLoglevel(99);
        m_seen = m_begin = std::ifstream(path, std::ios::ate).tellg();
    }
    /// The lines since then, without their time stamps.
    std::vector<std::string> lines() const { return read(m_begin).first; }
    /// Those since the last call of this function.
    std::vector<std::string> news()
    {
        auto [lines, end] = read(m_seen);
        m_seen = end;
        return lines;
    }
    /// The texts of the failures among them, "(what|where)".
    std::string failures()
    {
        std::string text;
        for (const std::string& line : news()) {
            if (line.rfind("ex.what():", 0) == 0)
                text += "(" + line.substr(12) + "|";
            else if (line.rfind("ex.where():", 0) == 0)
                text += line.substr(13) + ")";
        }
        return text;
    }

private:
    static std::pair<std::vector<std::string>, std::streamoff> read(std::streamoff at)
    {
        std::ifstream file(SystemWrapper::s_logPath);
        file.seekg(at);
        std::vector<std::string> lines;
        for (std::string line; std::getline(file, line); at += static_cast<std::streamoff>(line.size()) + 1)
            lines.push_back(line.size() > 19 && line[19] == '|' ? line.substr(20) : line);
        return {lines, at};
    }

    std::streamoff m_begin = 0;
    std::streamoff m_seen = 0;
};
