#include "render/audio/pipe_copy.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "render/audio/whole_write.h"
#include "render/failure.h"

bool PipeCopy::IsNeeded(const std::string& path) {
    std::error_code ignored;
    return path == "-" || std::filesystem::is_fifo(path, ignored);
}

// The object stands already, so that its file is closed whatever is thrown.
PipeCopy::PipeCopy(const std::string& path) : PipeCopy() {
    const auto fail = [](const std::string& what) {
        throw Failure("{}: {}", what, std::strerror(errno));
    };
    std::string name = std::filesystem::temp_directory_path() / "orvane-XXXXXX";
    fd = mkostemp(name.data(), O_CLOEXEC);
    if (fd < 0) fail("no temporary file for what is played twice");
    unlink(name.c_str());
    const int from = path == "-" ? STDIN_FILENO : open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (from < 0) fail(path + " cannot be read");
    std::array<char, 65536> block;
    ssize_t count = 0;
    while ((count = read(from, block.data(), block.size())) != 0) {
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) fail(path + " cannot be read");
        errno = WriteAll(fd, block.data(), static_cast<size_t>(count));
        if (errno != 0) fail("the temporary file for what is played twice can't be written");
    }
    if (from != STDIN_FILENO) close(from);
}

PipeCopy::~PipeCopy() {
    if (fd >= 0) close(fd);
}
