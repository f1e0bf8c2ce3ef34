// The Unix socket on which a running client takes requests: one line of text each way.
//
// The socket is $XDG_RUNTIME_DIR/orvane-desktop (/run/user/UID without that variable), and only its
// owner may open it. At most 16 programs are served at once; a line may have 64 KiB. A program that
// watches gets events ten times a second at most; as long as none watches, no clock runs.
#pragma once
#include <pipewire/pipewire.h>

#include <functional>
#include <map>
#include <string>
#include <string_view>

#include "desktop/commands.h"

std::string ControlSocketPath();

// Held while a client starts and while the entries of a killed one are erased. Each waits for the
// others here. Without a file for the lock, nobody waits.
class StartLock {
public:
    StartLock();
    ~StartLock();
    StartLock(const StartLock&) = delete;
    StartLock& operator=(const StartLock&) = delete;

private:
    int file;
};

// Serves on the loop's thread.
class ControlSocket {
public:
    // All lines are without a line end.
    struct Service {
        // Returns the answer to a line, and stores what its program wants from now on.
        std::function<std::string(const std::string& line, ConnectionWishes*)> answer;
        // Return the lines of the events. A state is sent only if it differs from the one before.
        std::function<std::string()> levels, state;
        // A program has left.
        std::function<void(const ConnectionWishes&)> left;
    };
    // Throws std::runtime_error if another client serves already, or if the socket can't be made.
    ControlSocket(pw_loop* serverLoop, Service whatIsServed);
    ~ControlSocket();
    ControlSocket(const ControlSocket&) = delete;
    ControlSocket& operator=(const ControlSocket&) = delete;

private:
    struct Program {
        ControlSocket* socket = nullptr;
        int file = -1;
        spa_source* source = nullptr;
        std::string unread, seenState;
        ConnectionWishes wishes;
    };
    void Listen();
    void Close();
    void Accept();
    void Read(int file);
    void SetClock();
    void SendEvents();
    void Drop(int file);
    static bool Send(int file, const std::string& line);

    pw_loop* loop;
    Service service;
    bool ownsPath = false;
    int listening = -1;
    spa_source *source = nullptr, *clock = nullptr;
    bool clockRuns = false;
    std::map<int, Program> programs;
};

// Another program's end of the socket.
class ControlConnection {
public:
    ControlConnection();
    ~ControlConnection();
    ControlConnection(const ControlConnection&) = delete;
    ControlConnection& operator=(const ControlConnection&) = delete;

    // Returns false if no client runs.
    bool IsOpen() const { return file >= 0; }
    // Sends one line and waits up to 5 s for one. Returns "" if none came.
    std::string Ask(std::string_view line);

private:
    int file = -1;
    std::string unread;
};
