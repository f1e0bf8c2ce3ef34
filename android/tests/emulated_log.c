/* Stands in for the platform's log under emulation. Writes to standard error, as log_stderr.cpp does. */
#include <stdarg.h>
#include <stdio.h>

// NOLINTBEGIN(bugprone-reserved-identifier): the platform's name
int __android_log_print(int priority, const char* tag, const char* format, ...);

int __android_log_print(int priority, const char* tag, const char* format, ...) {
    va_list arguments;
    fprintf(stderr, "%c/%s: ", "??VDIWEFS"[priority], tag);
    va_start(arguments, format);
    vfprintf(stderr, format, arguments);
    va_end(arguments);
    return fputc('\n', stderr);
}
// NOLINTEND(bugprone-reserved-identifier)
