// The platform log, information level (priority 4). A build takes one of its sources:
// log_liblog.cpp on a device, log_stderr.cpp elsewhere.
#pragma once
#include <cstddef>

constexpr char kLogTag[] = "Quenthra_v2";
constexpr size_t kMaxLogLine = 512;  // with the NUL; longer lines are cut

// One line, printf's format without a line end. On a host without the platform's log it goes to
// standard error as "I/Quenthra_v2: <line>". Allocates nothing; any thread.
__attribute__((format(printf, 1, 2))) void LogInfo(const char* format, ...);
