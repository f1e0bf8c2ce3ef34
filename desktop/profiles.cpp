#include "desktop/profiles.h"

#include <fcntl.h>
#include <fmt/core.h>
#include <strings.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>

#include "client/json.h"
#include "client/presets.h"
#include "client/settings_text.h"

namespace {

constexpr size_t kMostBytes = 1000000;
constexpr char kFileName[] = "desktop.json", kOldFileName[] = "desktop";

std::string ReadText(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::string text(kMostBytes, '\0');
    file.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<size_t>(file.gcount()));
    return text;
}

std::vector<std::string> SplitLines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
}

}  // namespace

Settings SettingsOfLines(const std::vector<std::string>& lines,
                         std::vector<std::string>* warnings) {
    Settings settings;
    for (const std::string& line : lines) {
        Settings tried = settings;
        const std::string wrong = ReadSettings(line, &tried);
        if (wrong.empty())
            settings = tried;
        else
            warnings->push_back(fmt::format("\"{}\" is ignored ({})", line, wrong));
    }
    return settings;
}

std::vector<std::string> LinesOf(const Settings& settings) {
    return SplitLines(SettingsText(settings));
}

std::filesystem::path Profiles::DefaultFolder() {
    const char* const set = std::getenv("XDG_CONFIG_HOME");
    const char* const home = std::getenv("HOME");
    const std::string base = set != nullptr && *set != '\0'
                                 ? set
                                 : std::string(home != nullptr ? home : "") + "/.config";
    return std::filesystem::path(base) / "orvane";
}

Profiles::Profiles(std::filesystem::path where)
    : folder(std::move(where)), last(SettingsOf(Presets().front())) {
    std::error_code fault;
    if (std::filesystem::exists(folder / kFileName, fault))
        Read(ReadText(folder / kFileName));
    else if (std::filesystem::exists(folder / kOldFileName, fault))
        last = SettingsOfLines(SplitLines(ReadText(folder / kOldFileName)), &warnings);
}

void Profiles::Read(const std::string& text) {
    const JsonValue all = JsonValue::Parse(text);
    if (!all.IsObject()) {
        warnings.push_back(
            fmt::format("{} is broken and is ignored; the next change saves it as {}.broken",
                        (folder / kFileName).string(), kFileName));
        return;
    }
    // A member of the wrong kind counts as an empty one.
    if (all.Has("last")) last = SettingsOfLines(all["last"].Texts(), &warnings);
    for (const auto& [name, profile] : all["profiles"].Members())
        if (profile.IsObject())
            profiles[name] = {profile["on"].Switch().value_or(true),
                              SettingsOfLines(profile["settings"].Texts(), &warnings)};
    for (const std::string& name : all["left_out"].Texts()) leftOut.insert(name);
}

Profile Profiles::Of(const std::string& output) const {
    const auto found = profiles.find(output);
    return found != profiles.end() ? found->second : Profile{true, last};
}

std::string Profiles::Set(const std::string& output, const Profile& profile) {
    if (!output.empty()) profiles[output] = profile;
    if (profile.isOn) last = profile.settings;
    return Write();
}

std::string Profiles::LeaveOut(const std::string& application, bool isOut) {
    std::erase_if(leftOut, [&](const std::string& name) {
        return strcasecmp(name.c_str(), application.c_str()) == 0;
    });
    if (isOut) leftOut.insert(application);
    return Write();
}

std::string Profiles::Write() const {
    JsonValue saved;
    for (const auto& [name, profile] : profiles)
        saved.Add(name, {{"on", profile.isOn}, {"settings", LinesOf(profile.settings)}});
    const JsonValue all{{"last", LinesOf(last)},
                        {"profiles", saved},
                        {"left_out", std::vector<std::string>(leftOut.begin(), leftOut.end())}};
    const std::string text = all.Lines();

    const std::filesystem::path path = folder / kFileName;
    std::error_code fault;
    std::filesystem::create_directories(folder, fault);
    // A broken file may hold somebody's work, so it is kept under another name.
    if (std::filesystem::exists(path, fault) && !JsonValue::Parse(ReadText(path)).IsObject())
        std::filesystem::rename(path, path.string() + ".broken", fault);
    std::string fresh = path.string() + ".XXXXXX";
    const int file = mkostemp(fresh.data(), O_CLOEXEC);
    int error = file < 0 ? errno : 0;
    for (size_t at = 0; error == 0 && at < text.size();) {
        const ssize_t written = write(file, text.data() + at, text.size() - at);
        if (written < 0 && errno != EINTR) error = errno;
        if (written > 0) at += static_cast<size_t>(written);
    }
    if (error == 0 && fsync(file) != 0) error = errno;
    if (file >= 0) close(file);
    if (error == 0 && std::rename(fresh.c_str(), path.c_str()) != 0) error = errno;
    if (error == 0) return "";
    if (file >= 0) unlink(fresh.c_str());
    return fmt::format("cannot write {}: {}", path.string(), std::strerror(error));
}
