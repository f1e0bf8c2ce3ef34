// Output files that appear under their names only when they are complete.
//
// Use the objects on one thread.
#pragma once
#include <array>
#include <ctime>
#include <optional>
#include <string>
#include <vector>

// A path of a file, or of an empty folder, that is removed when the object is destroyed. It is also
// removed when a signal ends the program (see RemoveTemporariesOnSignals). A signal removes the
// newest path first.
class RemovedName {
public:
    RemovedName() = default;  // no path
    explicit RemovedName(const std::string& path);
    ~RemovedName();
    RemovedName(RemovedName&& other) noexcept;
    RemovedName& operator=(RemovedName&& other) noexcept;

    const char* Path() const;  // Returns "" if there is no path.
    // Gives the path up, so that it stays.
    void Keep();

    struct Entry;

private:
    Entry* entry = nullptr;
};

// A group of files that get their final names together: all of them or none.
class OutputSet {
public:
    OutputSet() = default;
    ~OutputSet();
    OutputSet(const OutputSet&) = delete;
    OutputSet& operator=(const OutputSet&) = delete;

    // Creates the folder and its parents if they do not exist. Throws Failure if it cannot. Without
    // Commit, the folders that were created are removed again.
    void MakeFolder(const std::string& path);
    // Gives every file its name. If one cannot get it, the others lose theirs again, replaced files
    // get their content back, and Failure is thrown. Signals to this thread are blocked meanwhile.
    void Commit();

private:
    friend class OutputFile;
    struct File {
        RemovedName temporary;  // the new file; after an exchange, the old file
        std::string path;
        bool overwrite;
        bool exchanged = false;

        // Renames the file. Throws Failure. `isLast`: no later file can fail, so the old file need
        // not be kept.
        void Name(bool isLast);
        void TakeBack() const;
    };
    std::vector<RemovedName> folders;
    std::vector<File> files;
};

// The times at which a file was last read and last written.
using FileTimes = std::array<timespec, 2>;

// `path`: "-" is standard input. Throws Failure if the file cannot be accessed, or UsageError if it
// is not a regular file.
FileTimes TimesOf(const std::string& path);

// Writes to a temporary file in the folder of the final one. The temporary file is removed when the
// object is destroyed or a signal ends the program, unless Commit came first.
class OutputFile {
public:
    // Throws Failure if the file exists and `overwrite` is false, if the path is not a regular
    // file, or if the folder is not writable. A symbolic link is followed, also to a file that does
    // not exist yet. The mode, owner, group and extended attributes of an old file are kept. Its
    // other hard links keep the old content. `together`: if not null, Commit hands the file to this
    // set instead of naming it.
    OutputFile(const std::string& path, bool overwrite, OutputSet* together = nullptr);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    const char* TemporaryPath() const { return temporary.Path(); }
    // Returns the descriptor of the temporary file, open for reading and writing.
    int Descriptor() const { return fd; }
    // Returns what the new file could not take over from the old one, such as "the old file's
    // owner".
    const std::vector<std::string>& NotKept() const { return notKept; }
    // Makes Commit set these times after the last write.
    void SetTimes(const FileTimes& fileTimes) { times = fileTimes; }
    // Flushes the temporary file to the disk and then gives it its final name. In the other order,
    // a power cut could leave an empty file under that name. Throws Failure if it cannot; then an
    // old file stays as it was.
    void Commit();

    // Throws Failure like the constructor, but creates nothing. It does not check the folder.
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

// Returns whether two paths name the same file: in another spelling, through links, or as hard
// links. The file need not exist yet.
bool AreOneFile(const std::string& a, const std::string& b);

// Installs handlers that remove temporary files before a signal ends the program. They handle
// SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGPIPE (the reader has gone), SIGXFSZ and SIGXCPU (a limit is
// reached), and SIGABRT.
void RemoveTemporariesOnSignals();
