// Compares the log lines of a scope with those of a file in tests/data/log. With ORVANE_WRITE_LOGS
// set it writes the file instead, to be read before it is kept.
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
