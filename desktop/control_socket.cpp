#include "desktop/control_socket.h"

#include <fcntl.h>
#include <fmt/core.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <vector>

namespace {

constexpr size_t kMostPrograms = 16, kMostLineBytes = 65536;
constexpr int kWaitSeconds = 5;
constexpr long kEventNs = 100'000'000;

// Fails if the path is longer than an address may be.
bool MakeAddress(sockaddr_un* address) {
    const std::string path = ControlSocketPath();
    if (path.size() >= sizeof address->sun_path) return false;
    address->sun_family = AF_UNIX;
    std::memcpy(address->sun_path, path.c_str(), path.size() + 1);
    return true;
}

int Open() {
    return socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
}

const sockaddr* Plain(const sockaddr_un& address) {
    return reinterpret_cast<const sockaddr*>(&address);
}

}  // namespace

std::string ControlSocketPath() {
    const char* const folder = std::getenv("XDG_RUNTIME_DIR");
    return (folder != nullptr && *folder != '\0' ? std::string(folder)
                                                 : fmt::format("/run/user/{}", getuid())) +
           "/orvane-desktop";
}

StartLock::StartLock()
    : file(open((ControlSocketPath() + ".lock").c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600)) {
    if (file >= 0) flock(file, LOCK_EX);
}

StartLock::~StartLock() {
    if (file >= 0) close(file);
}

ControlSocket::ControlSocket(pw_loop* serverLoop, Service whatIsServed)
    : loop(serverLoop), service(std::move(whatIsServed)) {
    const StartLock lock;
    try {
        Listen();
    } catch (...) {
        Close();
        throw;
    }
}

void ControlSocket::Listen() {
    if (ControlConnection().IsOpen()) throw std::runtime_error("it is running already");
    sockaddr_un address{};
    listening = Open();
    const mode_t mask = umask(0077);  // the socket's mode is 0600 from its first moment on
    unlink(ControlSocketPath().c_str());
    const bool isBound = listening >= 0 && MakeAddress(&address) &&
                         bind(listening, Plain(address), sizeof address) == 0 &&
                         chmod(ControlSocketPath().c_str(), 0600) == 0 &&
                         listen(listening, static_cast<int>(kMostPrograms)) == 0;
    const int error = errno;
    umask(mask);
    if (!isBound)
        throw std::runtime_error(
            fmt::format("cannot make {}: {}", ControlSocketPath(), std::strerror(error)));
    ownsPath = true;
    source = pw_loop_add_io(
        loop, listening, SPA_IO_IN, false,
        [](void* socket, int, uint32_t) { static_cast<ControlSocket*>(socket)->Accept(); }, this);
    clock = pw_loop_add_timer(
        loop, [](void* socket, uint64_t) { static_cast<ControlSocket*>(socket)->SendEvents(); },
        this);
    if (source == nullptr || clock == nullptr)
        throw std::runtime_error("cannot wait for other programs");
}

ControlSocket::~ControlSocket() {
    while (!programs.empty()) Drop(programs.begin()->first);
    Close();
}

void ControlSocket::Close() {
    for (spa_source* const waiting : {clock, source})
        if (waiting != nullptr) pw_loop_destroy_source(loop, waiting);
    // In this order: as soon as nobody listens, another client may make the path anew.
    if (ownsPath) unlink(ControlSocketPath().c_str());
    if (listening >= 0) close(listening);
}

void ControlSocket::Accept() {
    const int file = accept4(listening, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (file < 0) return;
    if (programs.size() >= kMostPrograms) {
        close(file);
        return;
    }
    Program& program = programs[file];
    program.socket = this;
    program.file = file;
    program.source = pw_loop_add_io(
        loop, file, SPA_IO_IN | SPA_IO_HUP | SPA_IO_ERR, false,
        [](void* data, int descriptor, uint32_t) {
            static_cast<Program*>(data)->socket->Read(descriptor);
        },
        &program);
    if (program.source == nullptr) {
        close(file);
        programs.erase(file);
    }
}

void ControlSocket::Read(int file) {
    std::array<char, 4096> bytes{};
    const ssize_t count = recv(file, bytes.data(), bytes.size(), 0);
    if (count < 0 && (errno == EAGAIN || errno == EINTR)) return;
    if (count <= 0) return Drop(file);
    Program& program = programs[file];
    std::string& unread = program.unread;
    unread.append(bytes.data(), static_cast<size_t>(count));
    for (size_t end = 0; (end = unread.find('\n')) != std::string::npos;) {
        const std::string line = unread.substr(0, end);
        unread.erase(0, end + 1);
        if (!Send(file, service.answer(line, &program.wishes))) return Drop(file);
        if (!program.wishes.watches) program.seenState.clear();
    }
    if (unread.size() > kMostLineBytes) return Drop(file);
    SetClock();
}

// The clock runs as long as a program watches.
void ControlSocket::SetClock() {
    const bool isNeeded = std::any_of(programs.begin(), programs.end(), [](const auto& program) {
        return program.second.wishes.watches;
    });
    if (isNeeded == clockRuns) return;
    clockRuns = isNeeded;
    timespec first{0, isNeeded ? 1 : 0}, interval{0, isNeeded ? kEventNs : 0};
    pw_loop_update_timer(loop, clock, &first, &interval, false);
}

void ControlSocket::SendEvents() {
    const std::string levels = service.levels(), state = service.state();
    std::vector<int> deaf;
    for (auto& [file, program] : programs) {
        if (!program.wishes.watches) continue;
        const bool isNew = program.seenState != state;
        if ((isNew && !Send(file, state)) || !Send(file, levels)) deaf.push_back(file);
        program.seenState = state;
    }
    for (const int file : deaf) Drop(file);
}

// A program that doesn't read what it is sent loses its connection, so that nobody waits for it.
bool ControlSocket::Send(int file, const std::string& line) {
    const std::string text = line + "\n";
    return send(file, text.data(), text.size(), MSG_NOSIGNAL | MSG_DONTWAIT) ==
           static_cast<ssize_t>(text.size());
}

void ControlSocket::Drop(int file) {
    const ConnectionWishes wishes = programs[file].wishes;
    pw_loop_destroy_source(loop, programs[file].source);
    close(file);
    programs.erase(file);
    SetClock();
    service.left(wishes);
}

ControlConnection::ControlConnection() : file(Open()) {
    sockaddr_un address{};
    if (file >= 0 && MakeAddress(&address) && connect(file, Plain(address), sizeof address) == 0) {
        const timeval wait{kWaitSeconds, 0};
        setsockopt(file, SOL_SOCKET, SO_RCVTIMEO, &wait, sizeof wait);
        return;
    }
    if (file >= 0) close(file);
    file = -1;
}

ControlConnection::~ControlConnection() {
    if (file >= 0) close(file);
}

std::string ControlConnection::Ask(std::string_view line) {
    const std::string text = std::string(line) + "\n";
    if (send(file, text.data(), text.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(text.size()))
        return "";
    for (;;) {
        const size_t end = unread.find('\n');
        if (end != std::string::npos) {
            std::string answer = unread.substr(0, end);
            unread.erase(0, end + 1);
            return answer;
        }
        std::array<char, 4096> bytes{};
        const ssize_t count = recv(file, bytes.data(), bytes.size(), 0);
        if (count <= 0) return "";
        unread.append(bytes.data(), static_cast<size_t>(count));
    }
}
