// The platform's log at information level (priority 4). A build compiles one of its two sources:
// log_liblog.cpp for a device, log_stderr.cpp elsewhere.
#pragma once
#include <cstddef>

constexpr char kLogTag[] = "Quenthra_v2";
constexpr size_t kMaxLogLine = 512;  // with the NUL; longer lines are cut

// Logs one line. The format is printf's, without a line end. On a host without the platform's log
// the line goes to standard error as "I/Quenthra_v2: <line>". Allocates nothing. Any thread.
__attribute__((format(printf, 1, 2))) void LogInfo(const char* format, ...);
