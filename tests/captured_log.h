// Compares the log lines that are written during its lifetime with a file in tests/data/log. If the
// environment has ORVANE_WRITE_LOGS, it writes that file instead. Read the new file before you
// commit it.
#pragma once
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

class CapturedLog {
public:
    explicit CapturedLog(const std::string& name)
        : path(std::string(ORVANE_TEST_DATA) + "/log/" + name + ".txt") {
        testing::internal::CaptureStderr();
    }
    ~CapturedLog() {
        const std::string log = testing::internal::GetCapturedStderr();
        if (std::getenv("ORVANE_WRITE_LOGS") != nullptr) std::ofstream(path) << log;
        std::ifstream file(path);
        EXPECT_EQ(log, std::string(std::istreambuf_iterator<char>(file), {})) << path;
    }
    CapturedLog(const CapturedLog&) = delete;
    CapturedLog& operator=(const CapturedLog&) = delete;

private:
    const std::string path;
};
