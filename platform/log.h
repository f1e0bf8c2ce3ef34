// The platform's log at information level (priority 4). A build compiles one of its two sources:
// log_liblog.cpp for a device, log_stderr.cpp elsewhere.
#pragma once
#include <cstddef>

constexpr char kLogTag[] = "Quenthra_v2";
constexpr size_t kMaxLogLine = 512;  // with the NUL; longer lines are cut

// Logs one line. The format is printf's, without a line end. On a host without the platform's log
// the line goes to standard error as "I/Quenthra_v2: <line>". Allocates nothing. Any thread.
__attribute__((format(printf, 1, 2))) void LogInfo(const char* format, ...);

// Log lines that are collected while a lock is held and written once it is released, so that nobody
// waits for the log's reader. Allocates nothing. Thread: one at a time.
class DeferredLog {
public:
    // Keeps one line. The format is a string literal with at most two %d. A line beyond the last
    // place is dropped.
    void LogInfo(const char* format, int first = 0, int second = 0) {
        if (count < kLines) lines[count++] = {format, first, second};
    }
    // Writes the lines in the order in which they were kept.
    void Write() const {
        for (size_t n = 0; n < count; ++n)
            ::LogInfo(lines[n].format, lines[n].first, lines[n].second);
    }

private:
    static constexpr size_t kLines = 11;  // as many as the longest configuration logs
    struct Line {
        const char* format;
        int first, second;
    };
    Line lines[kLines];
    size_t count = 0;
};
