/// The library's trace in memory of this test process, read from where the object was made.
#pragma once

#include "pkcs11/frontend/SystemWrapper.h"
#include "pkcs11/frontend/trace/FileLogger.h"

#include <fstream>
#include <string>
#include <sys/mman.h>
#include <vector>

class TraceFile {
public:
    TraceFile()
    {
        static const std::string path = "/proc/self/fd/" + std::to_string(memfd_create("trace", 0));
        SystemWrapper::s_logPath = path.c_str();
        C_GetFunctionList(nullptr); // the library has its trace and opens none later
        PKCS11::Logger::FreeLogger();
        PKCS11::Logger::SetLogger(new PKCS11::FileLogger(path.c_str(), 98));
        PKCS11::Logger::SetLoglevel(99);
        m_begin = std::ifstream(path, std::ios::ate).tellg();
    }
    /// The lines since then, without their time stamps.
    std::vector<std::string> lines() const
    {
        std::ifstream file(SystemWrapper::s_logPath);
        file.seekg(m_begin);
        std::vector<std::string> lines;
        for (std::string line; std::getline(file, line);)
            lines.push_back(line.size() > 19 && line[19] == '|' ? line.substr(20) : line);
        return lines;
    }

private:
    std::streamoff m_begin = 0;
};
