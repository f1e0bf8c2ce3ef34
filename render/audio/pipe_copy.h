// All that comes through a pipe, in a temporary file without a name. Decoders of compressed formats
// need to go back in a file, and some of them go astray in a pipe.
//
// Throws Failure.
#pragma once
#include <string>

class PipeCopy {
public:
    // Whether `path` can be read only once: "-", standard input, or a pipe with a name.
    static bool IsNeeded(const std::string& path);

    // Returns whether what comes next through the pipe `fd` is WAV, AIFF or AU whose header leaves
    // the length open: it may go on for hours. Takes nothing out of the pipe.
    static bool IsEndless(int fd);

    // Reads it to its end, into the folder for temporary files.
    explicit PipeCopy(const std::string& path);
    // The same from an open descriptor, which stays open. `name` is for messages.
    PipeCopy(int from, const std::string& name);
    ~PipeCopy();
    PipeCopy(const PipeCopy&) = delete;
    PipeCopy& operator=(const PipeCopy&) = delete;

    // To open it by, any number of times, while this lives.
    std::string Path() const { return "/proc/self/fd/" + std::to_string(fd); }

private:
    PipeCopy() = default;
    void Copy(int from, const std::string& name);

    int fd = -1;
};
