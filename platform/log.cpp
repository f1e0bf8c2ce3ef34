#include "platform/log.h"

#include <cstdarg>
#include <cstddef>
#include <cstdio>

#ifdef ORVANE_LIBLOG
#include <android/log.h>
#else
#include <unistd.h>
#endif

namespace {
constexpr size_t kMaxLine = 512;
}

#ifdef ORVANE_LIBLOG

void LogInfo(const char* format, ...) {
    char line[kMaxLine];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    __android_log_print(ANDROID_LOG_INFO, "Quenthra_v2", "%s", line);
}

#else

void LogInfo(const char* format, ...) {
    constexpr char kPrefix[] = "I/Quenthra_v2: ";
    constexpr size_t kPrefixLength = sizeof kPrefix - 1;
    char line[kPrefixLength + kMaxLine + 1] = "I/Quenthra_v2: ";
    va_list arguments;
    va_start(arguments, format);
    const int wanted = std::vsnprintf(line + kPrefixLength, kMaxLine, format, arguments);
    va_end(arguments);
    if (wanted < 0) return;
    size_t length = static_cast<size_t>(wanted);
    if (length > kMaxLine - 1) length = kMaxLine - 1;
    length += kPrefixLength;
    line[length++] = '\n';
    // One write, so that lines of several threads don't mix; a full or closed sink loses the line.
    const ssize_t written = write(STDERR_FILENO, line, length);
    static_cast<void>(written);
}

#endif
