// A file that appears under its name only when it is complete.
#pragma once
#include <array>
#include <ctime>
#include <optional>
#include <string>
#include <vector>

// A path that is removed when the object dies, or when the program is interrupted or told to end:
// a file, or a folder if it is empty. A signal removes the newest first.
class RemovedName {
public:
    RemovedName() = default;  // none
    explicit RemovedName(const std::string& path);
    ~RemovedName();
    RemovedName(RemovedName&& other) noexcept;
    RemovedName& operator=(RemovedName&& other) noexcept;

    const char* Path() const;  // "" for none
    // The path stays.
    void Keep();

    struct Entry;

private:
    Entry* entry = nullptr;
};

// Files that get their names together: all of them or none.
class OutputSet {
public:
    OutputSet() = default;
    ~OutputSet();
    OutputSet(const OutputSet&) = delete;
    OutputSet& operator=(const OutputSet&) = delete;

    // Makes the folder, and those above it, where they don't exist. Failure if it cannot. Without
    // Commit those that were made are removed again.
    void MakeFolder(const std::string& path);
    // Gives every file its name. If one cannot get it, the others lose theirs again, old files get
    // back what they held, and Failure is thrown. No signal comes between.
    void Commit();

private:
    friend class OutputFile;
    struct File {
        RemovedName temporary;  // holds the old file where the two were exchanged
        std::string path;
        bool overwrite;
        bool exchanged = false;

        // Throws Failure. isLast: nothing has to be taken back afterwards.
        void Name(bool isLast);
        void TakeBack() const;
    };
    std::vector<RemovedName> folders;
    std::vector<File> files;
};

// When a file was last read and last written.
using FileTimes = std::array<timespec, 2>;

// path: "-" is standard input. Throws Failure, or UsageError if it isn't a file.
FileTimes TimesOf(const std::string& path);

// Writes go to a temporary file beside the final one. It is removed when the object dies, or when
// the program is interrupted or told to end, unless Commit came first.
class OutputFile {
public:
    // Failure if the name is taken and overwrite is off, if something other than a file has it, or
    // if the folder cannot be written to. A symbolic link is followed, also to what doesn't exist
    // yet. An old file's mode, owner, group and extended attributes are kept; a hard link keeps the
    // old content under its other names.
    // together: what Commit hands the whole file over to, instead of naming it; null for none.
    OutputFile(const std::string& path, bool overwrite, OutputSet* together = nullptr);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    const char* TemporaryPath() const { return temporary.Path(); }
    // Of the temporary file, open for writing.
    int Descriptor() const { return fd; }
    // What the old file had and the new one can't be given: "the old file's owner".
    const std::vector<std::string>& NotKept() const { return notKept; }
    // Commit then gives the file these times, as the last that is written.
    void SetTimes(const FileTimes& fileTimes) { times = fileTimes; }
    // Gives the temporary file its name, once all of it is on the disk: a name given before could
    // stand for an empty file after a power cut. Failure if it cannot; then the old file stays.
    void Commit();

    // What the constructor would refuse, without touching anything.
    static void CheckName(const std::string& path, bool overwrite);

private:
    std::string finalPath;
    bool overwrite;
    OutputSet* set;
    std::vector<std::string> notKept;
    std::optional<FileTimes> times;
    int fd = -1;
    RemovedName temporary;
};

// Whether two names stand for one file, which need not exist yet: by another spelling, through
// links, or as hard links.
bool AreOneFile(const std::string& a, const std::string& b);

// From now on the signals that end a program from outside, and those of a reader that has gone and
// of limits reached, remove temporary files before they end it.
void RemoveTemporariesOnSignals();
