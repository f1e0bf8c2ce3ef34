// Compares the log lines that are written during its lifetime with a section of tests/data/log. If
// the environment has ORVANE_WRITE_LOGS, it writes that section anew instead. Read it before you
// commit it.
#pragma once
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <map>
#include <string>

class CapturedLog {
public:
    explicit CapturedLog(const std::string& name) : heading('[' + name + ']') {
        testing::internal::CaptureStderr();
    }
    ~CapturedLog() {
        const std::string path = ORVANE_TEST_DATA "/log";
        const std::string log = testing::internal::GetCapturedStderr();
        std::map<std::string, std::string> sections;  // by their headings
        std::ifstream file(path);
        std::string current;
        for (std::string line; std::getline(file, line);)
            if (line.starts_with('['))
                current = line;
            else
                sections[current] += line + '\n';
        if (std::getenv("ORVANE_WRITE_LOGS") == nullptr) {
            EXPECT_EQ(log, sections[heading]) << path;
            return;
        }
        sections[heading] = log;
        std::ofstream changed(path);
        for (const auto& [name, lines] : sections) changed << name << '\n' << lines;
    }
    CapturedLog(const CapturedLog&) = delete;
    CapturedLog& operator=(const CapturedLog&) = delete;

private:
    const std::string heading;
};
