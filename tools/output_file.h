// A file that appears under its name only when it is complete.
#pragma once
#include <string>

// Writes go to a temporary file beside the final one. It is removed when the object dies, or when
// the program is interrupted or told to end, unless Commit came first.
class OutputFile {
public:
    // Failure if the name is taken and overwrite is off, if something other than a file has it, or
    // if the folder cannot be written to. A symbolic link is followed.
    OutputFile(const std::string& path, bool overwrite);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    const std::string& TemporaryPath() const { return temporaryPath; }
    // Gives the temporary file its name.
    void Commit();

    // What the constructor would refuse, without touching anything.
    static void CheckName(const std::string& path, bool overwrite);

private:
    std::string finalPath, temporaryPath;
    bool overwrite;
    int slot = -1;  // of the names that a signal removes
};

// From now on an interrupt or a request to end removes temporary files, then ends the program.
void RemoveTemporariesOnSignals();
