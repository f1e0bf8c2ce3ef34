// Hides what a library writes to standard error while it is called.
#pragma once
#include <fcntl.h>
#include <unistd.h>

#include <cstdint>

// Defined by the sanitizers; null in builds without one.
// NOLINTNEXTLINE(bugprone-reserved-identifier): their name
extern "C" void __sanitizer_set_report_fd(void* fd) __attribute__((weak));

// While an object lives, everything that is written to file descriptor 2 is dropped. Only one
// object may live at a time. A sanitizer's report still reaches the former standard error.
class StderrSilencer {
public:
    explicit StderrSilencer(bool silence = true) {
        static const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
        if (!silence || nowhere < 0) return;
        saved = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
        if (saved < 0) return;
        SendReportsTo(saved);
        dup2(nowhere, STDERR_FILENO);
    }
    ~StderrSilencer() {
        if (saved < 0) return;
        dup2(saved, STDERR_FILENO);
        SendReportsTo(STDERR_FILENO);
        close(saved);
    }
    StderrSilencer(const StderrSilencer&) = delete;
    StderrSilencer& operator=(const StderrSilencer&) = delete;

private:
    static void SendReportsTo(intptr_t fd) {
        if (__sanitizer_set_report_fd != nullptr)
            __sanitizer_set_report_fd(
                reinterpret_cast<void*>(fd));  // NOLINT(performance-no-int-to-ptr): its interface
    }

    int saved = -1;
};
