// orvane-desktop: makes "Orvane" an output for all that the desktop plays.
//
// A settings file holds what the listener has set. `on` and `set` write it, and the client of the
// sound server reads it when it starts.
#include <fmt/core.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "client/delay.h"
#include "client/presets.h"
#include "client/settings_file.h"
#include "client/settings_text.h"
#include "client/terminal_text.h"
#include "desktop/filter_chain.h"
#include "live/live_stream.h"

namespace {

constexpr char kUsage[] =
    "usage: orvane-desktop on [PRESET or settings file]   everything plays through it\n"
    "       orvane-desktop off\n"
    "       orvane-desktop set KEY VALUE                  heard at once; keys of a settings file\n"
    "       orvane-desktop status\n"
    "       orvane-desktop run                            the client itself, in the foreground\n";

[[noreturn]] void Fail(const std::string& why) {
    fmt::print(stderr, "orvane-desktop: {}\n", TerminalText(why));
    std::exit(1);
}

std::filesystem::path FolderOf(const char* variable, const std::string& otherwise) {
    const char* const set = std::getenv(variable);
    return set != nullptr && *set != '\0' ? std::string(set) : otherwise;
}
std::filesystem::path SettingsPath() {
    const char* const home = std::getenv("HOME");
    return FolderOf("XDG_CONFIG_HOME", std::string(home != nullptr ? home : "") + "/.config") /
           "orvane/desktop";
}
std::filesystem::path RuntimePath(const char* name) {
    return FolderOf("XDG_RUNTIME_DIR", fmt::format("/run/user/{}", getuid())) / name;
}

void Write(const std::filesystem::path& path, const std::string& text) {
    std::error_code fault;
    std::filesystem::create_directories(path.parent_path(), fault);
    std::ofstream file(path);
    file << text;
    file.close();
    if (!file) Fail("cannot write " + path.string());
}

// Returns the settings that `read` reads from `name`, or ends the program with its complaint.
Settings Read(std::string (*read)(const std::string&, Settings*), const std::string& name) {
    Settings settings;
    const std::string fault = read(name, &settings);
    if (!fault.empty()) Fail(fault);
    return settings;
}
// Returns the settings that were heard last, or the first preset.
Settings Present() {
    return std::filesystem::exists(SettingsPath()) ? Read(ReadSettingsFile, SettingsPath())
                                                   : SettingsOf(Presets().front());
}

// Runs a line of shell and returns whether it succeeded; its output is dropped. Names that come
// from the machine or a listener must not be put into the line. They reach it as environment
// variables.
bool Does(const std::string& line) {
    return std::system((line + " >/dev/null 2>&1").c_str()) == 0;
}
// Runs a line of shell and returns its standard output.
std::string OutputOf(const std::string& line) {
    std::string text;
    FILE* const pipe = popen(("(" + line + ") 2>/dev/null").c_str(), "r");
    if (pipe == nullptr) return text;
    for (int letter = 0; (letter = std::fgetc(pipe)) != EOF;) text += static_cast<char>(letter);
    pclose(pipe);
    return text;
}

// Returns the number of the node "orvane", with a line end, or "" if there is none. The node that
// plays is created last, so it is asked for first.
std::string NodeNumber() {
    return OutputOf(
        "pw-cli info orvane.out | grep -q 'id: ' && pw-cli info orvane | "
        "sed -n 's/^[[:space:]]*id: \\([0-9]*\\).*/\\1/p'");
}
bool IsDefault() {
    return Does("wpctl inspect @DEFAULT_AUDIO_SINK@ | grep -q 'node.name = \"orvane\"'");
}
// Asks every 100 ms whether `holds`. Returns false if it doesn't within `seconds`.
bool Within(int seconds, bool (*holds)()) {
    for (int turn = 0; turn < 10 * seconds; ++turn) {
        if (holds()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    return false;
}

int Run() {
    const std::filesystem::path path = RuntimePath("orvane-desktop.conf");
    Write(path, ConfigurationText(Present()));
    execlp("pipewire", "pipewire", "-c", path.c_str(), nullptr);
    Fail("cannot start pipewire");
}

void Send(const Settings& settings) {
    if (!Does("pw-cli set-param orvane.out Props '" + PropertyText(settings) + "'"))
        Fail("the sound server takes no settings");
}

void NamePidFile() {
    setenv("ORVANE_PID", RuntimePath("orvane-desktop.pid").c_str(), 1);
}

// Starts the client through the user's service manager. If that has no such service, starts it as a
// process of its own and stores the process number in a file.
void Start() {
    if (Does("systemctl --user start orvane-desktop.service")) return;
    const std::string program = std::filesystem::read_symlink("/proc/self/exe").string();
    setenv("ORVANE_DESKTOP", program.c_str(), 1);
    NamePidFile();
    Does("(setsid \"$ORVANE_DESKTOP\" run </dev/null >/dev/null 2>&1 & echo $! >\"$ORVANE_PID\")");
}

int TurnOn(const char* what) {
    const Settings settings = what != nullptr ? Read(SettingsNamed, what) : Present();
    Write(SettingsPath(), SettingsText(settings));
    if (!Does("pw-cli info 0")) Fail("no PipeWire is running");
    if (NodeNumber().empty()) {
        Start();
        if (!Within(5, [] { return !NodeNumber().empty(); }))
            Fail("the output doesn't appear; `orvane-desktop run` tells why");
    } else {
        Send(settings);
    }
    std::string number = NodeNumber();
    number.erase(number.find_last_not_of('\n') + 1);
    if (!Does("wpctl set-default " + number) || !Within(5, IsDefault))
        Fail("the session manager doesn't make it the output");
    return 0;
}

int TurnOff() {
    NamePidFile();
    Does("systemctl --user stop orvane-desktop.service");
    Does("[ -f \"$ORVANE_PID\" ] && kill $(cat \"$ORVANE_PID\"); rm -f \"$ORVANE_PID\"");
    if (!Within(5, [] { return NodeNumber().empty(); })) Fail("the output stays");
    return 0;
}

int SetOne(const char* key, const char* value) {
    Settings settings = Present();
    const std::string wrong = SetFromText(key, value, &settings);
    if (!wrong.empty()) Fail(wrong);
    Write(SettingsPath(), SettingsText(settings));
    if (!NodeNumber().empty()) Send(settings);
    return 0;
}

int TellStatus() {
    const Settings settings = Present();
    const uint32_t frames =
        LiveStream::kLowLatencyFrames + DelayFrames(settings, LiveStream::kLowLatencyFrames);
    fmt::print("{}\n{}\nlatency {} frames ({:.1f} ms)\n",
               NodeNumber().empty() ? "off"
               : IsDefault()        ? "on, everything plays through it"
                                    : "on, another output is the default",
               Describe(settings), frames, frames / 48.0);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string command = argc > 1 ? argv[1] : "";
    if (command == "on" && argc <= 3) return TurnOn(argv[2]);
    if (command == "off" && argc == 2) return TurnOff();
    if (command == "set" && argc == 4) return SetOne(argv[2], argv[3]);
    if (command == "status" && argc == 2) return TellStatus();
    if (command == "run" && argc == 2) return Run();
    const bool asked = command == "--help" || command == "-h";
    std::fputs(kUsage, asked ? stdout : stderr);
    return asked ? 0 : 2;
}
