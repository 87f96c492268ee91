/// Texts that stand in files beside the tests.
#pragma once

#include <algorithm>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <string>

/// Where the text differs from the file under tests/ it is left in the working directory.
inline void expectFile(const std::string& path, const std::string& shown)
{
    std::ostringstream expected;
    expected << std::ifstream(QUARVEL_TESTS + path).rdbuf();
    const std::string left = path.substr(path.rfind('/') + 1);
    EXPECT_TRUE(shown == expected.str())
        << "git diff --no-index --word-diff " QUARVEL_TESTS << path << " " << left;
    if (shown != expected.str())
        std::ofstream(left) << shown;
}

/// Of a file whose lines are what goes in, " |", and what comes of it.
template <class Outcome>
void expectLines(const std::string& path, Outcome outcome)
{
    std::ifstream file(QUARVEL_TESTS + path);
    std::string shown;
    for (std::string line; std::getline(file, line);) {
        line.erase(std::min(line.find(" |"), line.size()));
        shown += line + " |" + outcome(line) + "\n";
    }
    EXPECT_NE(shown, "");
    expectFile(path, shown);
}
