#include "desktop/client.h"

#include <fmt/core.h>
#include <pipewire/pipewire.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstring>
#include <memory>
#include <optional>
#include <stdexcept>

#include "client/terminal_text.h"
#include "desktop/audio_pair.h"
#include "desktop/commands.h"
#include "desktop/control_socket.h"
#include "desktop/profiles.h"
#include "desktop/router.h"

namespace {

template <typename Type, void (*destroy)(Type*)>
struct Destroyer {
    void operator()(Type* object) const { destroy(object); }
};
using MainLoop = std::unique_ptr<pw_main_loop, Destroyer<pw_main_loop, pw_main_loop_destroy>>;
using Context = std::unique_ptr<pw_context, Destroyer<pw_context, pw_context_destroy>>;

template <typename Pointer>
Pointer Made(Pointer object) {
    if (object == nullptr) throw std::runtime_error("cannot make a loop for the sound server");
    return object;
}

void Say(const std::string& line) {
    fmt::print(stderr, "orvane-desktop: {}\n", TerminalText(line));
}

// Erases the entries by which a client that is gone has routed players. Only those name our input.
class Cleaner {
public:
    // Returns when all are erased, or after 3 s: a session manager that hangs tells no entries.
    void Run() {
        const StartLock lock;
        if (ControlConnection().IsOpen()) return;  // another client has started, and sees to them
        core = pw_context_connect(context.get(), nullptr, 0);
        if (core == nullptr) return;
        static const pw_core_events kCoreEvents = [] {
            pw_core_events events{};
            events.version = PW_VERSION_CORE_EVENTS;
            events.done = [](void* cleaner, uint32_t, int) {
                static_cast<Cleaner*>(cleaner)->TakeDone();
            };
            return events;
        }();
        static const pw_registry_events kEvents = [] {
            pw_registry_events events{};
            events.version = PW_VERSION_REGISTRY_EVENTS;
            events.global = [](void* cleaner, uint32_t id, uint32_t, const char* type, uint32_t,
                               const spa_dict* properties) {
                static_cast<Cleaner*>(cleaner)->Add(id, type, properties);
            };
            return events;
        }();
        pw_core_add_listener(core, &coreListener, &kCoreEvents, this);
        registry = pw_core_get_registry(core, PW_VERSION_REGISTRY, 0);
        pw_registry_add_listener(registry, &registryListener, &kEvents, this);
        pw_core_sync(core, PW_ID_CORE, 0);
        spa_source* const clock = Made(pw_loop_add_timer(
            loop,
            [](void* cleaner, uint64_t) {
                pw_main_loop_quit(static_cast<Cleaner*>(cleaner)->mainLoop.get());
            },
            this));
        timespec longest{3, 0};
        pw_loop_update_timer(loop, clock, &longest, nullptr, false);
        pw_main_loop_run(mainLoop.get());
        pw_core_disconnect(core);
    }

private:
    void Add(uint32_t id, const char* type, const spa_dict* properties) {
        if (std::strcmp(type, PW_TYPE_INTERFACE_Metadata) != 0 || metadata != nullptr) return;
        const char* const name = spa_dict_lookup(properties, PW_KEY_METADATA_NAME);
        if (name == nullptr || std::strcmp(name, "default") != 0) return;
        static const pw_metadata_events kEvents = [] {
            pw_metadata_events events{};
            events.version = PW_VERSION_METADATA_EVENTS;
            events.property = [](void* cleaner, uint32_t subject, const char* key, const char*,
                                 const char* value) {
                return static_cast<Cleaner*>(cleaner)->Erase(subject, key, value);
            };
            return events;
        }();
        metadata =
            static_cast<pw_proxy*>(pw_registry_bind(registry, id, type, PW_VERSION_METADATA, 0));
        pw_proxy_add_object_listener(metadata, &metadataListener, &kEvents, this);
    }
    int Erase(uint32_t subject, const char* key, const char* value) {
        if (key != nullptr && value != nullptr && std::strcmp(key, kTargetKey) == 0 &&
            std::strcmp(value, kInputName) == 0)
            pw_metadata_set_property(reinterpret_cast<pw_metadata*>(metadata), subject, kTargetKey,
                                     nullptr, nullptr);
        return 0;
    }
    // The first answer comes behind all objects and the second one behind all entries. The third
    // one comes when the server has heard of what is erased.
    void TakeDone() {
        if (++answers == 3 || metadata == nullptr)
            pw_main_loop_quit(mainLoop.get());
        else
            pw_core_sync(core, PW_ID_CORE, 0);
    }

    MainLoop mainLoop = Made(MainLoop{pw_main_loop_new(nullptr)});
    pw_loop* loop = pw_main_loop_get_loop(mainLoop.get());
    Context context = Made(Context{pw_context_new(loop, nullptr, 0)});
    pw_core* core = nullptr;
    pw_registry* registry = nullptr;
    pw_proxy* metadata = nullptr;
    spa_hook coreListener{}, registryListener{}, metadataListener{};
    int answers = 0;
};

// A process that waits for the end of this one, to clean up after it. It takes no signals, because
// some reach both processes. Its name keeps it from those who kill by the program's name.
class Successor {
public:
    // Must be made while the program has one thread.
    Successor() {
        std::array<int, 2> ends{};
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0) return;
        signal(SIGCHLD, SIG_IGN);  // it leaves nothing behind if it ends first
        const pid_t process = fork();
        if (process == 0) Wait(ends[0], ends[1]);
        close(ends[0]);
        file = ends[1];
    }
    ~Successor() {
        if (file >= 0) close(file);
    }
    Successor(const Successor&) = delete;
    Successor& operator=(const Successor&) = delete;

    // Ends it: there is nothing to clean up.
    void Dismiss() { send(file, "", 1, MSG_NOSIGNAL); }

private:
    [[noreturn]] static void Wait(int file, int others) {
        close(others);
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_BLOCK, &all, nullptr);
        prctl(PR_SET_NAME, "orvane-cleaner");
        char byte = 0;
        if (recv(file, &byte, 1, 0) == 1) _exit(0);
        pw_init(nullptr, nullptr);
        try {
            Cleaner().Run();
        } catch (const std::exception& fault) {
            Say(fault.what());
        }
        _exit(0);
    }

    int file = -1;
};

class Client final : public RunningClient {
public:
    explicit Client(Successor* whoCleansUp) : successor(whoCleansUp) {
        for (const std::string& warning : profiles.Warnings()) Say(warning);
        for (const int signal : {SIGTERM, SIGINT})
            Made(pw_loop_add_signal(
                loop, signal, [](void* client, int) { static_cast<Client*>(client)->Quit(); },
                this));
        renewal = Made(pw_loop_add_event(
            loop, [](void* client, uint64_t) { static_cast<Client*>(client)->Renew(); }, this));
        deadline = Made(pw_loop_add_timer(
            loop,
            [](void* client, uint64_t) {
                pw_main_loop_quit(static_cast<Client*>(client)->mainLoop.get());
            },
            this));
        socket.emplace(
            loop, ControlSocket::Service{[this](const std::string& line, ConnectionWishes* wishes) {
                                             return AnswerRequest(line, &profiles, this, wishes);
                                         },
                                         [this] { return LevelsEvent(*this); },
                                         [this] { return StateEvent(profiles, *this); },
                                         [this](const ConnectionWishes& wishes) {
                                             if (wishes.bypasses) SetBypass(false, 0);
                                         }});
        Connect();
    }

    ~Client() override {
        Disconnect();
        socket.reset();
    }

    int Run() {
        pw_main_loop_run(mainLoop.get());
        return status;
    }

    std::string PresentOutput() const override { return router->PresentOutput(); }
    std::vector<OutputDevice> Outputs() const override { return router->Outputs(); }
    std::vector<Player> Players() const override { return router->Players(); }
    LiveStream::Levels Levels() const override {
        return pair ? pair->Meters() : LiveStream::Levels{-100, -100, 0, false};
    }
    uint32_t RateHz() const override { return pair ? pair->RateHz() : 0; }
    uint32_t LatencyFrames() const override { return pair ? pair->LatencyFrames() : 0; }
    void SetBypass(bool wanted, double gainDb) override {
        bypass = wanted;
        bypassGain = static_cast<float>(std::pow(10, gainDb / 20));
        if (pair) pair->SetBypass(bypass, bypassGain);
    }

    void ProfilesChanged() override {
        router->LeaveOut(profiles.LeftOut());
        Update();
    }

    // Gives all players back, and ends when the server has heard of it. The server doesn't answer
    // while a session manager that hangs should tell us its entries, so the wait is limited.
    void Quit() override {
        isEnding = true;
        router->GiveAllBack();
        lastAnswer = pw_core_sync(core, PW_ID_CORE, 0);
        timespec longest{1, 0};
        pw_loop_update_timer(loop, deadline, &longest, nullptr, false);
    }

private:
    // Brings the sound to the profile of the present output.
    void Update() {
        if (isEnding || !pair) return;
        const std::string output = router->PresentOutput();
        // Between two outputs our sound goes nowhere for a moment. That is no output of its own.
        if (output.empty() && wasLinked) return;
        wasLinked = !output.empty();
        const Profile profile = profiles.Of(output);
        router->SetOn(profile.isOn);
        if (profile.settings == settings) return;
        settings = profile.settings;
        pair->Apply(settings);
    }
    void Connect() {
        core = pw_context_connect(context.get(), nullptr, 0);
        if (core == nullptr) throw std::runtime_error("no PipeWire is running");
        static const pw_core_events kEvents = [] {
            pw_core_events events{};
            events.version = PW_VERSION_CORE_EVENTS;
            events.done = [](void* client, uint32_t, int number) {
                static_cast<Client*>(client)->TakeDone(number);
            };
            events.error = [](void* client, uint32_t id, int, int result, const char*) {
                if (id == PW_ID_CORE && result == -EPIPE)
                    static_cast<Client*>(client)->ServerEnded();
            };
            return events;
        }();
        pw_core_add_listener(core, &coreListener, &kEvents, this);
        router.emplace(
            core, [this] { Update(); }, [this] { pw_loop_signal_event(loop, renewal); });
        pair.emplace(context.get(), core, settings);
        pair->SetBypass(bypass, bypassGain);
        router->LeaveOut(profiles.LeftOut());
    }
    void Disconnect() {
        pair.reset();
        router.reset();
        if (core == nullptr) return;
        spa_hook_remove(&coreListener);
        pw_core_disconnect(core);
        core = nullptr;
    }
    // A new session manager links only streams that it has seen appear. The connection is made
    // again as well. If a session manager ends while it should tell us its entries, the sound
    // server (PipeWire 0.3.65) takes nothing more from us.
    void Renew() {
        if (isEnding) return;
        try {
            Disconnect();
            Connect();
        } catch (const std::exception& fault) {  // the user's service starts another client
            Say(fault.what());
            status = 1;
            pw_main_loop_quit(mainLoop.get());
        }
    }
    void TakeDone(int number) {
        if (!isEnding || number != lastAnswer) return;
        successor->Dismiss();
        pw_main_loop_quit(mainLoop.get());
    }
    void ServerEnded() {
        Say("the sound server has ended");
        successor->Dismiss();  // the entries have ended with it
        status = 1;
        pw_main_loop_quit(mainLoop.get());
    }

    Successor* successor;
    Profiles profiles;
    Settings settings = profiles.Of("").settings;
    MainLoop mainLoop = Made(MainLoop{pw_main_loop_new(nullptr)});
    pw_loop* loop = pw_main_loop_get_loop(mainLoop.get());
    Context context = Made(Context{pw_context_new(loop, nullptr, 0)});
    spa_source *renewal = nullptr, *deadline = nullptr;  // owned by the loop
    pw_core* core = nullptr;
    spa_hook coreListener{};
    std::optional<ControlSocket> socket;
    std::optional<Router> router;
    std::optional<AudioPair> pair;
    bool wasLinked = false, isEnding = false, bypass = false;
    float bypassGain = 1;
    int lastAnswer = -1, status = 0;
};

}  // namespace

int RunClient() {
    // Blocked before the data thread is made, which inherits the mask: only the loop takes them.
    sigset_t ending;
    sigemptyset(&ending);
    sigaddset(&ending, SIGTERM);
    sigaddset(&ending, SIGINT);
    pthread_sigmask(SIG_BLOCK, &ending, nullptr);
    Successor successor;
    pw_init(nullptr, nullptr);
    int status = 1;
    try {
        status = Client(&successor).Run();
    } catch (const std::exception& fault) {
        Say(fault.what());
    }
    pw_deinit();
    return status;
}

bool ServerRuns() {
    pw_init(nullptr, nullptr);
    const MainLoop mainLoop = Made(MainLoop{pw_main_loop_new(nullptr)});
    const Context context =
        Made(Context{pw_context_new(pw_main_loop_get_loop(mainLoop.get()), nullptr, 0)});
    pw_core* const core = pw_context_connect(context.get(), nullptr, 0);
    if (core != nullptr) pw_core_disconnect(core);
    return core != nullptr;
}
