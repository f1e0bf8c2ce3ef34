// The log of a host without the platform's: standard error.
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
    // One write, so that lines of several threads don't mix; a full or closed sink loses the line.
    const ssize_t written = write(STDERR_FILENO, line, static_cast<size_t>(length));
    static_cast<void>(written);
}
