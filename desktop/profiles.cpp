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
#include <nlohmann/json.hpp>
#include <sstream>

#include "client/presets.h"
#include "client/settings_text.h"

using nlohmann::ordered_json;

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

// A member of the wrong kind counts as an empty one.
std::vector<std::string> TextsOf(const ordered_json& object, const char* key) {
    std::vector<std::string> texts;
    if (const auto found = object.find(key); found != object.end() && found->is_array())
        for (const ordered_json& text : *found)
            if (text.is_string()) texts.push_back(text.get<std::string>());
    return texts;
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
    const ordered_json all = ordered_json::parse(text, nullptr, false);
    if (!all.is_object()) {
        warnings.push_back(
            fmt::format("{} is broken and is ignored; the next change saves it as {}.broken",
                        (folder / kFileName).string(), kFileName));
        return;
    }
    if (all.contains("last")) last = SettingsOfLines(TextsOf(all, "last"), &warnings);
    if (const auto found = all.find("profiles"); found != all.end() && found->is_object())
        for (const auto& [name, profile] : found->items()) {
            if (!profile.is_object()) continue;
            const auto on = profile.find("on");
            profiles[name] = {on == profile.end() || !on->is_boolean() || on->get<bool>(),
                              SettingsOfLines(TextsOf(profile, "settings"), &warnings)};
        }
    for (const std::string& name : TextsOf(all, "left_out")) leftOut.insert(name);
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
    ordered_json all;
    all["last"] = LinesOf(last);
    all["profiles"] = ordered_json::object();
    for (const auto& [name, profile] : profiles)
        all["profiles"][name] = {{"on", profile.isOn}, {"settings", LinesOf(profile.settings)}};
    all["left_out"] = leftOut;
    const std::string text = all.dump(2, ' ', false, ordered_json::error_handler_t::replace) + "\n";

    const std::filesystem::path path = folder / kFileName;
    std::error_code fault;
    std::filesystem::create_directories(folder, fault);
    // A broken file may hold somebody's work, so it is kept under another name.
    if (std::filesystem::exists(path, fault) && !ordered_json::accept(ReadText(path)))
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
