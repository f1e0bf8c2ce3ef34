#include "render/stderr_silencer.h"

#include <fcntl.h>
#include <unistd.h>

StderrSilencer::StderrSilencer(bool silence) {
    if (!silence) return;
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (nowhere < 0) return;
    saved = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
    if (saved >= 0) dup2(nowhere, STDERR_FILENO);
    close(nowhere);
}

StderrSilencer::~StderrSilencer() {
    if (saved < 0) return;
    dup2(saved, STDERR_FILENO);
    close(saved);
}
