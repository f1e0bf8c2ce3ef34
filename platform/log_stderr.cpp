// The log on a host without the platform's log: standard error.
#include <unistd.h>

#include <cstdarg>
#include <cstdio>

#include "platform/log.h"

void LogInfo(const char* format, ...) {
    char text[kMaxLogLine];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    char line[kMaxLogLine + 32];
    const int length = std::snprintf(line, sizeof line, "I/%s: %s\n", kLogTag, text);
    // A single write, so that lines of several threads don't mix. If standard error is full or
    // closed, the line is lost.
    const ssize_t written = write(STDERR_FILENO, line, static_cast<size_t>(length));
    static_cast<void>(written);
}
