// orvane-desktop: all that the desktop plays passes through the effect.
//
// `run` is the client of the sound server. Everything else asks the running client through its
// socket, or changes the listener's profiles in their file while none runs.
#include <fcntl.h>
#include <fmt/core.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "client/json.h"
#include "client/settings_file.h"
#include "client/terminal_text.h"
#include "desktop/client.h"
#include "desktop/commands.h"
#include "desktop/control_socket.h"

namespace {

constexpr char kUsage[] =
    "usage: orvane-desktop on [PRESET or settings file] [--for OUTPUT]\n"
    "           Everything that plays passes through the effect. The settings belong to the\n"
    "           output that you listen to, or to OUTPUT, and come back with it.\n"
    "       orvane-desktop off [--for OUTPUT]    ends it; with --for, this output alone stays "
    "direct\n"
    "       orvane-desktop set KEY VALUE [--for OUTPUT]\n"
    "           Changes one setting, heard at once. Keys are those of a settings file.\n"
    "       orvane-desktop devices [--json]      lists the outputs and their settings\n"
    "       orvane-desktop leave-out APPLICATION plays it directly, now and later\n"
    "       orvane-desktop bring-back APPLICATION\n"
    "       orvane-desktop status [--json]\n"
    "       orvane-desktop window                opens the window\n"
    "       orvane-desktop run                   the client itself, in the foreground\n";

[[noreturn]] void Fail(const std::string& why) {
    fmt::print(stderr, "orvane-desktop: {}\n", TerminalText(why));
    std::exit(1);
}
[[noreturn]] void Misused() {
    std::fputs(kUsage, stderr);
    std::exit(2);
}

bool IsOn(const JsonValue& object, const char* key, bool otherwise = false) {
    return object[key].Switch().value_or(otherwise);
}

// Asks the running client, or changes the file if none runs. Ends the program if it is refused.
JsonValue Ask(const JsonValue& request) {
    const std::string line = request.OneLineOfAscii();
    ControlConnection connection;
    std::string text;
    if (connection.IsOpen()) {
        text = connection.Ask(line);
        if (text.empty()) Fail("the running client doesn't answer");
    } else {
        Profiles profiles;
        text = AnswerRequest(line, &profiles, nullptr, nullptr);
    }
    JsonValue answer = JsonValue::Parse(text);
    if (!answer.IsObject()) Fail("the running client's answer is broken");
    if (!IsOn(answer, "ok")) Fail(answer["error"].Text().value_or("it is refused"));
    for (const std::string& warning : answer["ignored"].Texts())
        fmt::print(stderr, "orvane-desktop: {}\n", TerminalText(warning));
    return answer;
}

// Starts a program without a shell. Returns its process, or -1. Its output goes nowhere.
pid_t Spawn(std::vector<std::string> words) {
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t files{};
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, 0, "/dev/null", O_RDWR, 0);
    posix_spawn_file_actions_adddup2(&files, 0, 1);
    posix_spawn_file_actions_adddup2(&files, 0, 2);
    posix_spawnattr_t how{};
    posix_spawnattr_init(&how);
    posix_spawnattr_setflags(&how, POSIX_SPAWN_SETSID);
    pid_t process = -1;
    if (posix_spawnp(&process, arguments[0], &files, &how, arguments.data(), environ) != 0)
        process = -1;
    posix_spawnattr_destroy(&how);
    posix_spawn_file_actions_destroy(&files);
    return process;
}

bool Within(int seconds, bool (*holds)()) {
    for (int turn = 0; turn < 20 * seconds; ++turn) {
        if (holds()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return false;
}

// Through the user's service manager, or as a process of its own if there is no such service.
void Start() {
    if (!ServerRuns()) Fail("no PipeWire is running");
    int status = 1;
    const pid_t manager = Spawn({"systemctl", "--user", "start", "orvane-desktop.service"});
    const bool isService = manager > 0 && waitpid(manager, &status, 0) == manager && status == 0;
    if (!isService) Spawn({std::filesystem::read_symlink("/proc/self/exe").string(), "run"});
    if (!Within(5, [] { return ControlConnection().IsOpen(); }))
        Fail("the client doesn't start; `orvane-desktop run` tells why");
    // The settings belong to an output, so they wait until the sound has one.
    Within(3, [] { return !Ask({{"do", "status"}})["output"].Text().value_or("").empty(); });
}

int TurnOn(const char* what, JsonValue request) {
    request.Add("do", "on");
    if (what != nullptr) {
        Settings settings;
        const std::string fault = SettingsNamed(what, &settings);
        if (!fault.empty()) Fail(fault);
        request.Add("settings", LinesOf(settings));
    }
    if (!request.Has("for") && !ControlConnection().IsOpen()) Start();
    Ask(request);
    return 0;
}

int TurnOff(JsonValue request) {
    const bool quits = !request.Has("for");
    request.Add("do", quits ? "quit" : "off");
    if (quits && !ControlConnection().IsOpen()) return 0;
    Ask(request);
    if (quits && !Within(5, [] { return !ControlConnection().IsOpen(); }))
        Fail("the client doesn't end");
    return 0;
}

std::string Quoted(const JsonValue& object, const char* key) {
    return TerminalText(object[key].Text().value_or(""));
}

int TellStatus(bool asJson) {
    const JsonValue status = Ask({{"do", "status"}});
    if (asJson) {
        fmt::print("{}", status.Lines());
        return 0;
    }
    if (!IsOn(status, "running")) {
        fmt::print("off\n");
        return 0;
    }
    const std::string output = Quoted(status, "output");
    if (output.empty())
        fmt::print("on, but there is no output\n");
    else
        fmt::print("{} {}\n", IsOn(status, "on", true) ? "on, for" : "off for", output);
    fmt::print("{}\n", Quoted(status, "text"));
    const double rate = status["rate"].Number().value_or(0);
    const double frames = status["latency_frames"].Number().value_or(0);
    if (rate != 0) fmt::print("latency {:.0f} frames ({:.1f} ms)\n", frames, 1000 * frames / rate);
    for (const JsonValue& player : status["players"].Elements())
        fmt::print("{}: {}\n", Quoted(player, "application"),
                   IsOn(player, "routed")       ? "passes through it"
                   : IsOn(player, "left_out")   ? "left out"
                   : IsOn(player, "own_target") ? "has an output of its own"
                                                : "direct");
    return 0;
}

int ListDevices(bool asJson) {
    const JsonValue answer = Ask({{"do", "outputs"}});
    if (asJson) {
        fmt::print("{}", answer.Lines());
        return 0;
    }
    for (const JsonValue& output : answer["outputs"].Elements()) {
        const JsonValue profile = output["profile"];
        fmt::print(
            "{} {}{}\n    {}\n", IsOn(output, "present") ? "*" : " ", Quoted(output, "name"),
            IsOn(output, "connected") ? "  " + Quoted(output, "description") : "  (not connected)",
            profile.IsNull()             ? "no settings of its own"
            : !IsOn(profile, "on", true) ? "off"
                                         : Quoted(profile, "text"));
    }
    return 0;
}

// Becomes the window's program, which is installed beside this one or in a folder for programs that
// nobody calls by name.
int OpenWindow() {
    const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe");
    const std::filesystem::path folder = self.parent_path();
    const std::string name = "orvane-desktop-window";
    for (const std::filesystem::path& path :
         {folder / name, folder.parent_path() / "lib/orvane" / name})
        execl(path.c_str(), name.c_str(), self.c_str(), ControlSocketPath().c_str(), nullptr);
    Fail("the window isn't installed");
}

// Takes "NAME VALUE" out of the arguments; returns null if the name isn't there.
const char* TakeOption(std::vector<const char*>* arguments, const std::string& name) {
    const auto at = std::find(arguments->begin(), arguments->end(), name);
    if (at == arguments->end()) return nullptr;
    if (at + 1 == arguments->end() || **(at + 1) == '\0') Misused();
    const char* const value = *(at + 1);
    arguments->erase(at, at + 2);
    return value;
}

// Returns the exit status.
int Main(int argc, char** argv) {
    std::vector<const char*> words(argv + std::min(argc, 1), argv + argc);
    if (words.empty()) Misused();
    const std::string command = words.front();
    words.erase(words.begin());
    if (command == "--help" || command == "-h") {
        std::fputs(kUsage, stdout);
        return 0;
    }
    const auto json = std::find(words.begin(), words.end(), std::string("--json"));
    const bool asJson = json != words.end();
    if (command == "status" && words.size() == asJson) return TellStatus(asJson);
    if (command == "devices" && words.size() == asJson) return ListDevices(asJson);

    JsonValue request;
    if (const char* const output = TakeOption(&words, "--for")) request.Add("for", output);
    if (command == "on" && words.size() <= 1)
        return TurnOn(words.empty() ? nullptr : words[0], request);
    if (command == "off" && words.empty()) return TurnOff(request);
    if (command == "set" && words.size() == 2) {
        Ask(request.Add("do", "set").Add("key", words[0]).Add("value", words[1]));
        return 0;
    }
    if ((command == "leave-out" || command == "bring-back") && words.size() == 1) {
        Ask({{"do", "leave-out"}, {"application", words[0]}, {"out", command == "leave-out"}});
        return 0;
    }
    if (command == "window" && words.empty()) return OpenWindow();
    if (command == "run" && words.empty()) return RunClient();
    Misused();
}

}  // namespace

int main(int argc, char** argv) {
    try {
        return Main(argc, argv);
    } catch (const std::exception& fault) {
        std::fprintf(stderr, "orvane-desktop: %s\n", fault.what());
        return 1;
    }
}
