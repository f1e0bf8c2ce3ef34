#include "tools/output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "tools/failure.h"

namespace fs = std::filesystem;

namespace {

// Names that a signal handler may read: written in full before `used` is set.
struct TemporaryName {
    std::atomic<bool> used{false};
    std::array<char, PATH_MAX> path{};
};
std::array<TemporaryName, 4> temporaryNames;

void RemoveAndEnd(int signalNumber) {
    for (const TemporaryName& name : temporaryNames)
        if (name.used.load()) unlink(name.path.data());
    std::signal(signalNumber, SIG_DFL);
    std::raise(signalNumber);
}

std::string Reason() {
    return std::strerror(errno);
}

// The file that a name stands for, through symbolic links.
std::string Resolved(const std::string& path) {
    std::error_code ignored;
    if (!fs::is_symlink(path, ignored)) return path;
    const fs::path target = fs::weakly_canonical(path, ignored);
    return ignored ? path : target.string();
}

// What a new file gets; an old one keeps its own.
mode_t ModeFor(const std::string& path) {
    struct stat old {};
    if (stat(path.c_str(), &old) == 0) return old.st_mode & 07777;
    const mode_t mask = umask(0);
    umask(mask);
    return 0666 & ~mask;
}

}  // namespace

void RemoveTemporariesOnSignals() {
    for (const int signalNumber : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction action {};
        // What the caller ignores (nohup) stays ignored.
        if (sigaction(signalNumber, nullptr, &action) != 0 || action.sa_handler == SIG_IGN)
            continue;
        action.sa_handler = RemoveAndEnd;
        sigaction(signalNumber, &action, nullptr);
    }
}

void OutputFile::CheckName(const std::string& path, bool overwrite) {
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    if (status.type() == fs::file_type::not_found) return;
    if (error) throw Failure(path + ": " + error.message());
    if (status.type() != fs::file_type::regular) throw Failure(path + " is not a file");
    if (!overwrite) throw Failure(path + " exists already (-f overwrites it)");
}

OutputFile::OutputFile(const std::string& path, bool overwrites)
    : finalPath(Resolved(path)), overwrite(overwrites) {
    CheckName(finalPath, overwrite);
    // The ending stays: some writers look at it.
    const fs::path name(finalPath);
    const std::string ending = name.extension().string();
    std::string pattern =
        (name.parent_path() / ("." + name.stem().string() + "-XXXXXX" + ending)).string();
    if (pattern.size() >= PATH_MAX) throw Failure(path + ": the name is too long");
    const int fd = mkostemps(pattern.data(), static_cast<int>(ending.size()), O_CLOEXEC);
    if (fd < 0) throw Failure(path + " cannot be written: " + Reason());
    fchmod(fd, ModeFor(finalPath));
    close(fd);
    temporaryPath = pattern;
    for (size_t i = 0; i < temporaryNames.size() && slot < 0; ++i) {
        TemporaryName& candidate = temporaryNames.at(i);
        if (candidate.used.load()) continue;
        std::memcpy(candidate.path.data(), temporaryPath.c_str(), temporaryPath.size() + 1);
        candidate.used.store(true);
        slot = static_cast<int>(i);
    }
}

OutputFile::~OutputFile() {
    if (temporaryPath.empty()) return;
    unlink(temporaryPath.c_str());
    if (slot >= 0) temporaryNames.at(static_cast<size_t>(slot)).used.store(false);
}

void OutputFile::Commit() {
    // Without leave to overwrite, a file that came meanwhile is not touched; file systems that
    // cannot promise that rename plainly.
    int result = -1;
    if (!overwrite) {
        result = renameat2(AT_FDCWD, temporaryPath.c_str(), AT_FDCWD, finalPath.c_str(),
                           RENAME_NOREPLACE);
        if (result != 0 && errno == EEXIST) throw Failure(finalPath + " exists already");
    }
    if (result != 0) result = std::rename(temporaryPath.c_str(), finalPath.c_str());
    if (result != 0) throw Failure(finalPath + " cannot be written: " + Reason());
    if (slot >= 0) temporaryNames.at(static_cast<size_t>(slot)).used.store(false);
    temporaryPath.clear();
}
