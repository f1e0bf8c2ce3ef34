#include "render/audio/output_file.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <string_view>
#include <utility>

#include "render/failure.h"

namespace fs = std::filesystem;

struct RemovedName::Entry {
    std::string path;
    Entry* next;
    std::atomic<bool> used{true};
};

namespace {

// The head of a list that the signal handler walks. An entry is complete before `newest` points to
// it, and entries are never deleted.
std::atomic<RemovedName::Entry*> newest{nullptr};

// Number of files and folders that may exist although their names are not in the list yet.
std::atomic<int> unlisted{0};

void RemoveAndEnd(int signalNumber) {
    while (unlisted.load() != 0) sched_yield();  // another thread is adding a name
    for (const RemovedName::Entry* entry = newest.load(); entry != nullptr; entry = entry->next)
        if (entry->used.load() && unlink(entry->path.c_str()) != 0) rmdir(entry->path.c_str());
    std::signal(signalNumber, SIG_DFL);
    std::raise(signalNumber);
}

std::string Reason() {
    return std::strerror(errno);
}

// Returns the path after following symbolic links. The last link may point to a file that does not
// exist. Throws Failure after 40 links.
std::string Resolved(const std::string& path) {
    constexpr int kMostLinks = 40;
    fs::path place = path;
    std::error_code error;
    for (int links = 0; fs::is_symlink(place, error); ++links) {
        if (links == kMostLinks) throw Failure("{} leads through too many symbolic links", path);
        place = place.parent_path() / fs::read_symlink(place, error);
        if (error) throw Failure("{} cannot be followed: {}", path, error.message());
    }
    return place.string();
}

// Returns the folder of a path with links followed, and sets *name to the file's name in it.
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

// Returns a pattern for mkostemps: a hidden name in the folder of `path`, not longer than the
// folder allows. Sets *ending to what follows the pattern's X characters.
std::string TemporaryPattern(const fs::path& path, std::string* ending) {
    constexpr std::string_view kDot = ".", kRandom = "-XXXXXX";
    constexpr size_t kLongestEnding = 16;
    const fs::path folder = path.has_parent_path() ? path.parent_path() : ".";
    const long most = pathconf(folder.c_str(), _PC_NAME_MAX);
    // The ending is kept, because some writers look at it.
    *ending = path.extension().string();
    if (ending->size() > kLongestEnding) ending->clear();
    std::string stem = path.stem().string();
    const size_t others = kDot.size() + kRandom.size() + ending->size();
    if (most > 0 && stem.size() + others > static_cast<size_t>(most)) {
        size_t size = static_cast<size_t>(most) - others;
        while (size > 0 && (stem[size] & 0xC0) == 0x80) --size;  // not within a UTF-8 character
        stem.resize(size);
    }
    return path.parent_path() / std::string(kDot).append(stem).append(kRandom).append(*ending);
}

// Returns the names of a file's extended attributes.
std::vector<std::string> AttributesOf(const char* path) {
    std::string names(static_cast<size_t>(std::max<ssize_t>(listxattr(path, nullptr, 0), 0)), '\0');
    names.resize(
        static_cast<size_t>(std::max<ssize_t>(listxattr(path, names.data(), names.size()), 0)));
    std::vector<std::string> list;
    for (size_t at = 0; at < names.size(); at += list.back().size() + 1)
        list.emplace_back(names.c_str() + at);
    return list;
}

bool CopyAttribute(const char* path, int fd, const char* name) {
    std::string value(static_cast<size_t>(std::max<ssize_t>(getxattr(path, name, nullptr, 0), 0)),
                      '\0');
    const ssize_t size = getxattr(path, name, value.data(), value.size());
    return size >= 0 && fsetxattr(fd, name, value.data(), static_cast<size_t>(size), 0) == 0;
}

// Gives a new file the owner, group, extended attributes (these include access control lists) and
// mode of the file at `path`. If there is none, it sets the default mode. Returns the names of what
// could not be set.
std::vector<std::string> TakeOver(const std::string& path, int fd) {
    struct stat old {};
    std::vector<std::string> lost;
    if (stat(path.c_str(), &old) != 0) {
        const mode_t mask = umask(0);
        umask(mask);
        old.st_mode = 0666 & ~mask;
    } else {
        if (fchown(fd, old.st_uid, old.st_gid) != 0) {
            if (fchown(fd, static_cast<uid_t>(-1), old.st_gid) != 0)
                lost.emplace_back("the old file's group");
            lost.emplace_back("the old file's owner");
        }
        for (const std::string& name : AttributesOf(path.c_str()))
            // The system may refuse attributes outside "user."; it gives each file the right ones
            // itself.
            if (!CopyAttribute(path.c_str(), fd, name.c_str()) && name.starts_with("user."))
                lost.push_back("the old file's attribute " + name);
    }
    fchmod(fd, old.st_mode & 07777);  // last, because changing the owner clears part of the mode
    return lost;
}

int Rename(const std::string& from, const std::string& to, unsigned flags) {
    return renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), flags);
}

// Blocks all signals to this thread for the lifetime of the object.
class SignalsHeld {
public:
    SignalsHeld() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before);
    }
    ~SignalsHeld() { pthread_sigmask(SIG_SETMASK, &before, nullptr); }
    SignalsHeld(const SignalsHeld&) = delete;
    SignalsHeld& operator=(const SignalsHeld&) = delete;

private:
    sigset_t before;
};

// Exists while a file or folder is created and its name is added to the list. No signal interrupts
// this: this thread gets none, and a handler on another thread waits.
class Listing {
public:
    Listing() { ++unlisted; }
    ~Listing() { --unlisted; }
    Listing(const Listing&) = delete;
    Listing& operator=(const Listing&) = delete;

private:
    // destroyed after the count is lowered, because the handler must not wait for its own thread
    SignalsHeld held;
};

}  // namespace

bool AreOneFile(const std::string& a, const std::string& b) {
    if (ExistAsOne(a, b)) return true;
    std::string nameOfA, nameOfB;
    const std::string folderOfA = FolderOf(a, &nameOfA), folderOfB = FolderOf(b, &nameOfB);
    return nameOfA == nameOfB && ExistAsOne(folderOfA, folderOfB);
}

void RemoveTemporariesOnSignals() {
    for (const int signalNumber :
         {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGPIPE, SIGXFSZ, SIGXCPU, SIGABRT}) {
        struct sigaction action {};
        // Signals that the caller ignores (nohup) stay ignored.
        if (sigaction(signalNumber, nullptr, &action) != 0 || action.sa_handler == SIG_IGN)
            continue;
        action.sa_handler = RemoveAndEnd;
        sigaction(signalNumber, &action, nullptr);
    }
}

FileTimes TimesOf(const std::string& path) {
    struct stat status {};
    const int result = path == "-" ? fstat(STDIN_FILENO, &status) : stat(path.c_str(), &status);
    if (result != 0) throw Failure("{} cannot be read: {}", path, Reason());
    if (!S_ISREG(status.st_mode))
        throw UsageError("{} is not a regular file, so it has no times to keep", path);
    return {status.st_atim, status.st_mtim};
}

void OutputFile::CheckName(const std::string& path, bool overwrite) {
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    if (status.type() == fs::file_type::not_found) {
        if (!overwrite && fs::is_symlink(path, error))
            throw Failure("{} is a link to a file that doesn't exist (-f creates it)", path);
        return;
    }
    if (error) throw Failure("{} cannot be examined: {}", path, error.message());
    if (status.type() != fs::file_type::regular) throw Failure("{} is not a regular file", path);
    if (!overwrite) throw Failure("{} exists already (-f overwrites it)", path);
}

RemovedName::RemovedName(const std::string& path) : entry(new Entry{path, newest.load()}) {
    while (!newest.compare_exchange_weak(entry->next, entry)) {
    }
}

RemovedName::RemovedName(RemovedName&& other) noexcept
    : entry(std::exchange(other.entry, nullptr)) {}

RemovedName& RemovedName::operator=(RemovedName&& other) noexcept {
    std::swap(entry, other.entry);
    return *this;
}

RemovedName::~RemovedName() {
    if (entry == nullptr) return;
    if (unlink(Path()) != 0) rmdir(Path());
    Keep();
}

const char* RemovedName::Path() const {
    return entry == nullptr ? "" : entry->path.c_str();
}

void RemovedName::Keep() {
    if (entry != nullptr) entry->used.store(false);
    entry = nullptr;
}

OutputFile::OutputFile(const std::string& path, bool overwrites, OutputSet* together)
    : finalPath(Resolved(path)), overwrite(overwrites), set(together) {
    CheckName(path, overwrite);
    std::string ending;
    std::string pattern = TemporaryPattern(finalPath, &ending);
    {
        const Listing untilListed;
        fd = mkostemps(pattern.data(), static_cast<int>(ending.size()), O_CLOEXEC);
        if (fd < 0) throw Failure("{} cannot be written: {}", path, Reason());
        temporary = RemovedName(pattern);
    }
    notKept = TakeOver(finalPath, fd);
}

OutputFile::~OutputFile() {
    if (fd >= 0) close(fd);
}

void OutputFile::Commit() {
    if (times && futimens(fd, times->data()) != 0)
        throw Failure("the times of {} cannot be set: {}", finalPath, Reason());
    const bool stored = fsync(fd) == 0;
    if (!stored || close(std::exchange(fd, -1)) != 0)
        throw Failure("{} cannot be written: {}", finalPath, Reason());
    OutputSet alone;
    OutputSet& target = set != nullptr ? *set : alone;
    target.files.push_back({std::move(temporary), finalPath, overwrite});
    alone.Commit();
}

void OutputSet::MakeFolder(const std::string& path) {
    const fs::path above = fs::path(path).parent_path();
    std::error_code error;
    if (fs::is_directory(path, error)) return;
    if (!above.empty() && above != path) MakeFolder(above.string());
    const Listing untilListed;
    if (mkdir(path.c_str(), 0777) == 0)
        folders.emplace_back(path);
    else if (errno != EEXIST || !fs::is_directory(path, error))
        throw Failure("the folder {} cannot be created: {}", path, Reason());
}

OutputSet::~OutputSet() {
    files.clear();
    while (!folders.empty()) folders.pop_back();  // deepest folder first
}

void OutputSet::File::Name(bool isLast) {
    // If overwriting is not allowed, a file that appeared meanwhile is not touched. File systems
    // that do not support this flag, or the exchange, get a plain rename.
    if (!overwrite) {
        if (Rename(temporary.Path(), path, RENAME_NOREPLACE) == 0) return;
        if (errno == EEXIST) throw Failure("{} exists already", path);
    } else if (!isLast) {
        exchanged = Rename(temporary.Path(), path, RENAME_EXCHANGE) == 0;
        if (exchanged) return;
    }
    if (Rename(temporary.Path(), path, 0) != 0)
        throw Failure("{} cannot be written: {}", path, Reason());
}

void OutputSet::File::TakeBack() const {
    Rename(path, temporary.Path(), exchanged ? RENAME_EXCHANGE : 0);
}

void OutputSet::Commit() {
    const SignalsHeld held;
    size_t named = 0;
    try {
        for (; named < files.size(); ++named) files[named].Name(named + 1 == files.size());
    } catch (const Failure&) {
        while (named > 0) files[--named].TakeBack();
        files.clear();
        throw;
    }
    for (File& file : files)
        if (!file.exchanged) file.temporary.Keep();
    files.clear();
    for (RemovedName& folder : folders) folder.Keep();
    folders.clear();
}
