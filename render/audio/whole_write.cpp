#include "render/audio/whole_write.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "client/terminal_text.h"
#include "render/failure.h"

namespace {

constexpr const char* kKept = "\n\t";

}  // namespace

int WriteAll(int fd, const void* bytes, size_t size) {
    const char* next = static_cast<const char*>(bytes);
    while (size > 0) {
        const ssize_t written = write(fd, next, size);
        if (written < 0 && errno == EAGAIN) {
            pollfd writable{fd, POLLOUT, 0};
            poll(&writable, 1, -1);
        } else if (written < 0 && errno != EINTR) {
            return errno;
        }
        if (written < 0) continue;
        next += written;
        size -= static_cast<size_t>(written);
    }
    return 0;
}

void WriteToStandardOutput(const void* bytes, size_t size) {
    if (const int error = WriteAll(STDOUT_FILENO, bytes, size))
        throw Failure("standard output cannot be written: {}", std::strerror(error));
}

void PrintToStandardOutput(const std::string& text) {
    const std::string safe = TerminalText(text, kKept);
    WriteToStandardOutput(safe.data(), safe.size());
}

void PrintToStandardError(const std::string& text) {
    const std::string safe = TerminalText(text, kKept);
    WriteAll(STDERR_FILENO, safe.data(), safe.size());
}

void PrintMessage(const std::string& message) {
    PrintToStandardError("orvane: " + TerminalText(message) + "\n");
}
