#include "render/audio/pipe_copy.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string_view>
#include <thread>

#include "render/audio/source_scan.h"
#include "render/audio/whole_write.h"
#include "render/failure.h"

namespace {

constexpr size_t kHeaderBytes = 12;

// Returns the pipe's next 12 bytes, fewer if it ends before them. Returns "" if `fd` is not a pipe.
std::string Peek(int fd) {
    std::string head;
    std::array<int, 2> pipe{};
    if (pipe2(pipe.data(), O_CLOEXEC) != 0) return head;
    while (true) {
        pollfd readable{fd, POLLIN, 0};
        poll(&readable, 1, -1);
        const ssize_t count = tee(fd, pipe[1], kHeaderBytes, 0);
        if (count < 0 && (errno == EINTR || errno == EAGAIN)) continue;
        head.resize(static_cast<size_t>(std::max<ssize_t>(count, 0)));
        if (count > 0 && read(pipe[0], head.data(), head.size()) != count) head.clear();
        if (head.empty() || head.size() == kHeaderBytes || (readable.revents & POLLHUP) != 0) break;
        // the writer has not sent the rest yet
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    close(pipe[0]);
    close(pipe[1]);
    return head;
}

}  // namespace

bool PipeCopy::IsNeeded(const std::string& path) {
    std::error_code ignored;
    return path == "-" || std::filesystem::is_fifo(path, ignored);
}

bool PipeCopy::IsEndless(int fd) {
    const std::string head = Peek(fd);
    if (head.size() < kHeaderBytes) return false;
    const std::string_view magic(head.data(), 4), second(head.data() + 4, 4);
    if (magic == "RIFF") return IsOpenLength(LittleEndian(second));
    if (magic == "RIFX" || magic == "FORM") return IsOpenLength(BigEndian(second));
    return magic == ".snd" && IsOpenLength(BigEndian(std::string_view(head).substr(8)));
}

// The delegated constructor completes the object, so the destructor closes the file if Copy throws.
PipeCopy::PipeCopy(const std::string& path) : PipeCopy() {
    const int from = path == "-" ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0)
                                 : open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (from < 0) throw Failure("{} cannot be read: {}", path, std::strerror(errno));
    Copy(from, path);
    close(from);
}

PipeCopy::PipeCopy(int from, const std::string& name) : PipeCopy() {
    Copy(from, name);
}

void PipeCopy::Copy(int from, const std::string& name) {
    const auto fail = [](const std::string& what) {
        throw Failure("{}: {}", what, std::strerror(errno));
    };
    const std::string folder = std::filesystem::temp_directory_path().string();
    fd = open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    if (fd < 0) {  // a file system that has no files without a name
        std::string pattern = folder + "/orvane-XXXXXX";
        fd = mkostemp(pattern.data(), O_CLOEXEC);
        if (fd >= 0) unlink(pattern.c_str());
    }
    if (fd < 0) fail("the temporary file for a pipe's content cannot be created");
    std::array<char, 65536> block;
    ssize_t count = 0;
    while ((count = read(from, block.data(), block.size())) != 0) {
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) fail(name + " cannot be read");
        errno = WriteAll(fd, block.data(), static_cast<size_t>(count));
        if (errno != 0) fail("the temporary file for a pipe's content cannot be written");
    }
}

PipeCopy::~PipeCopy() {
    if (fd >= 0) close(fd);
}
