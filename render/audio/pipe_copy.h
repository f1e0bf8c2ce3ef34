// Copies the content of a pipe to an unnamed temporary file. Decoders of compressed formats need to
// seek, and some of them fail on a pipe.
//
// Use an object on one thread. The constructors throw Failure.
#pragma once
#include <string>

class PipeCopy {
public:
    // Returns whether `path` can be read only once: "-" (standard input) or a named pipe.
    static bool IsNeeded(const std::string& path);

    // Returns whether the pipe `fd` begins with a WAV, AIFF or AU header that leaves the length
    // open. Such a stream may run for hours. Takes nothing out of the pipe, but waits for its first
    // 12 bytes.
    static bool IsEndless(int fd);

    // Copies `path` to its end, into the folder for temporary files. "-" is standard input.
    explicit PipeCopy(const std::string& path);
    // Copies from an open descriptor, which stays open. `name` is used in messages.
    PipeCopy(int from, const std::string& name);
    ~PipeCopy();
    PipeCopy(const PipeCopy&) = delete;
    PipeCopy& operator=(const PipeCopy&) = delete;

    // Returns a path of the copy. It can be opened any number of times while this object exists.
    std::string Path() const { return "/proc/self/fd/" + std::to_string(fd); }

private:
    PipeCopy() = default;
    void Copy(int from, const std::string& name);

    int fd = -1;
};
