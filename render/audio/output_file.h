// A file that appears under its name only when it is complete.
#pragma once
#include <string>

// Writes go to a temporary file beside the final one. It is removed when the object dies, or when
// the program is interrupted or told to end, unless Commit came first.
class OutputFile {
public:
    // Failure if the name is taken and overwrite is off, if something other than a file has it, or
    // if the folder cannot be written to. A symbolic link is followed, also to what doesn't exist
    // yet. An old file's mode is kept; a hard link keeps the old content under its other names.
    OutputFile(const std::string& path, bool overwrite);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    const std::string& TemporaryPath() const { return temporaryPath; }
    // Of the temporary file, open for writing.
    int Descriptor() const { return fd; }
    // Gives the temporary file its name, once all of it is on the disk: a name given before could
    // stand for an empty file after a power cut. Failure if it cannot; then the old file stays.
    void Commit();

    // What the constructor would refuse, without touching anything.
    static void CheckName(const std::string& path, bool overwrite);

private:
    std::string finalPath, temporaryPath;
    bool overwrite;
    int fd = -1;
    int slot = -1;  // of the names that a signal removes
};

// Whether two names stand for one file, which need not exist yet: by another spelling, through
// links, or as hard links.
bool AreOneFile(const std::string& a, const std::string& b);

// From now on the signals that end a program from outside, and those of a reader that has gone and
// of limits reached, remove temporary files before they end it.
void RemoveTemporariesOnSignals();
