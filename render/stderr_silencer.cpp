#include "render/stderr_silencer.h"

#include <fcntl.h>
#include <unistd.h>

// A sanitizer's, in builds that have one.
extern "C" void __sanitizer_set_report_fd(void* fd) __attribute__((weak));  // NOLINT

namespace {

void SendReportsTo(intptr_t fd) {
    if (__sanitizer_set_report_fd != nullptr)
        __sanitizer_set_report_fd(
            reinterpret_cast<void*>(fd));  // NOLINT(performance-no-int-to-ptr)
}

}  // namespace

StderrSilencer::StderrSilencer(bool silence) {
    static const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (!silence || nowhere < 0) return;
    saved = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
    if (saved < 0) return;
    SendReportsTo(saved);
    dup2(nowhere, STDERR_FILENO);
}

StderrSilencer::~StderrSilencer() {
    if (saved < 0) return;
    dup2(saved, STDERR_FILENO);
    SendReportsTo(STDERR_FILENO);
    close(saved);
}
