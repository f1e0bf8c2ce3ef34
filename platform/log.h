// The platform log, information level (priority 4), tag "Quenthra_v2".
#pragma once

// One line, printf's format without a line end, at most 511 characters. On a host without the
// platform's log it goes to standard error as "I/Quenthra_v2: <line>". Allocates nothing; any
// thread.
__attribute__((format(printf, 1, 2))) void LogInfo(const char* format, ...);
