// The log on a device: the platform's own.
#include <android/log.h>

#include <cstdarg>
#include <cstdio>

#include "platform/log.h"

void LogInfo(const char* format, ...) {
    char line[kMaxLogLine];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    __android_log_print(ANDROID_LOG_INFO, kLogTag, "%s", line);
}
