#include "render/audio/output_file.h"

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
#include <utility>

#include "render/failure.h"

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

// The file that a name stands for, through symbolic links; the last may lead to nothing.
std::string Resolved(const std::string& path) {
    constexpr int kMostLinks = 40;
    fs::path place = path;
    std::error_code error;
    for (int links = 0; fs::is_symlink(place, error); ++links) {
        if (links == kMostLinks) throw Failure(path + ": too many links");
        place = place.parent_path() / fs::read_symlink(place, error);
        if (error) throw Failure(path + ": " + error.message());
    }
    return place.string();
}

// Folder of a name and, in `name`, what it is called there.
std::string FolderOf(const std::string& path, std::string* name) {
    const fs::path resolved = Resolved(path);
    *name = resolved.filename().string();
    return resolved.has_parent_path() ? resolved.parent_path().string() : ".";
}

bool ExistAsOne(const std::string& a, const std::string& b) {
    struct stat first {
    }, second{};
    return stat(a.c_str(), &first) == 0 && stat(b.c_str(), &second) == 0 &&
           first.st_dev == second.st_dev && first.st_ino == second.st_ino;
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

bool AreOneFile(const std::string& a, const std::string& b) {
    if (ExistAsOne(a, b)) return true;
    std::string nameOfA, nameOfB;
    const std::string folderOfA = FolderOf(a, &nameOfA), folderOfB = FolderOf(b, &nameOfB);
    return nameOfA == nameOfB && ExistAsOne(folderOfA, folderOfB);
}

void RemoveTemporariesOnSignals() {
    for (const int signalNumber : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGPIPE, SIGXFSZ, SIGXCPU}) {
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
    if (status.type() == fs::file_type::not_found) {
        if (!overwrite && fs::is_symlink(path, error))
            throw Failure(path + " is a link to a file that doesn't exist (-f makes it)");
        return;
    }
    if (error) throw Failure(path + ": " + error.message());
    if (status.type() != fs::file_type::regular) throw Failure(path + " is not a file");
    if (!overwrite) throw Failure(path + " exists already (-f overwrites it)");
}

OutputFile::OutputFile(const std::string& path, bool overwrites)
    : finalPath(Resolved(path)), overwrite(overwrites) {
    CheckName(path, overwrite);
    // The ending stays: some writers look at it.
    const fs::path name(finalPath);
    const std::string ending = name.extension().string();
    std::string pattern =
        (name.parent_path() / ("." + name.stem().string() + "-XXXXXX" + ending)).string();
    if (pattern.size() >= PATH_MAX) throw Failure(path + ": the name is too long");
    fd = mkostemps(pattern.data(), static_cast<int>(ending.size()), O_CLOEXEC);
    if (fd < 0) throw Failure(path + " cannot be written: " + Reason());
    fchmod(fd, ModeFor(finalPath));
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
    if (fd >= 0) close(fd);
    if (temporaryPath.empty()) return;
    unlink(temporaryPath.c_str());
    if (slot >= 0) temporaryNames.at(static_cast<size_t>(slot)).used.store(false);
}

void OutputFile::Commit() {
    const bool stored = fsync(fd) == 0;
    if (!stored || close(std::exchange(fd, -1)) != 0)
        throw Failure(finalPath + " cannot be written: " + Reason());
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
