// All that comes through a pipe, in a temporary file without a name, for those who read it twice.
//
// Throws Failure.
#pragma once
#include <string>

class PipeCopy {
public:
    // Whether `path` can be read only once: "-", standard input, or a pipe with a name.
    static bool IsNeeded(const std::string& path);

    // Reads it to its end, into the folder for temporary files.
    explicit PipeCopy(const std::string& path);
    ~PipeCopy();
    PipeCopy(const PipeCopy&) = delete;
    PipeCopy& operator=(const PipeCopy&) = delete;

    // To open it by, any number of times, while this lives.
    std::string Path() const { return "/proc/self/fd/" + std::to_string(fd); }

private:
    PipeCopy() = default;

    int fd = -1;
};
