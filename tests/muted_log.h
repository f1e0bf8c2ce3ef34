// Sends standard error, and with it the library's log, to nowhere for as long as it lives.
#pragma once
#include <fcntl.h>
#include <unistd.h>

class MutedLog {
public:
    MutedLog() : saved(dup(STDERR_FILENO)) {
        const int sink = open("/dev/null", O_WRONLY);
        dup2(sink, STDERR_FILENO);
        close(sink);
    }
    ~MutedLog() {
        dup2(saved, STDERR_FILENO);
        close(saved);
    }
    MutedLog(const MutedLog&) = delete;
    MutedLog& operator=(const MutedLog&) = delete;

private:
    int saved;
};
