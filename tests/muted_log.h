// Discards standard error, and with it the library's log, during its lifetime. Reports of a
// sanitizer are still shown.
#pragma once
#include <fcntl.h>
#include <unistd.h>

#include <cstdint>

// Defined by the sanitizers; null without one.
// NOLINTNEXTLINE(bugprone-reserved-identifier): their name
extern "C" __attribute__((weak)) void __sanitizer_set_report_fd(void* fd);

class MutedLog {
public:
    MutedLog() : saved(dup(STDERR_FILENO)) {
        ReportTo(saved);
        const int sink = open("/dev/null", O_WRONLY);
        dup2(sink, STDERR_FILENO);
        close(sink);
    }
    ~MutedLog() {
        dup2(saved, STDERR_FILENO);
        ReportTo(STDERR_FILENO);
        close(saved);
    }
    MutedLog(const MutedLog&) = delete;
    MutedLog& operator=(const MutedLog&) = delete;

private:
    static void ReportTo(intptr_t fd) {
        if (__sanitizer_set_report_fd != nullptr)
            __sanitizer_set_report_fd(
                reinterpret_cast<void*>(fd));  // NOLINT(performance-no-int-to-ptr): its interface
    }

    int saved;
};
