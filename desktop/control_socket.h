// The Unix socket on which a running client takes requests: one line of text each way.
//
// The socket is $XDG_RUNTIME_DIR/orvane-desktop (/run/user/UID without that variable), and only its
// owner may open it. At most 16 programs are served at once; a line may have 64 KiB.
#pragma once
#include <pipewire/pipewire.h>

#include <functional>
#include <map>
#include <string>
#include <string_view>

std::string ControlSocketPath();

// Serves on the loop's thread.
class ControlSocket {
public:
    // Returns the answer to a line. Both are without a line end.
    using Answer = std::function<std::string(const std::string& line)>;
    // Throws std::runtime_error if another client serves already, or if the socket can't be made.
    ControlSocket(pw_loop* serverLoop, Answer whenAsked);
    ~ControlSocket();
    ControlSocket(const ControlSocket&) = delete;
    ControlSocket& operator=(const ControlSocket&) = delete;

private:
    struct Program {
        ControlSocket* socket = nullptr;
        int file = -1;
        spa_source* source = nullptr;
        std::string unread;
    };
    void Accept();
    void Read(int file);
    void Drop(int file);
    static bool Send(int file, const std::string& line);

    pw_loop* loop;
    Answer answer;
    int listening = -1;
    spa_source* source = nullptr;
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
