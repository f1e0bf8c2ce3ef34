#include "client/settings_file.h"

#include <filesystem>
#include <fstream>

#include "client/presets.h"
#include "client/settings_text.h"

namespace {
constexpr std::streamsize kMostBytes = 65536;
}

std::string ReadSmallFile(const std::string& path, const char* what, std::string* text) {
    std::ifstream file(path);
    text->assign(static_cast<size_t>(kMostBytes) + 1, '\0');
    file.read(text->data(), kMostBytes + 1);
    if (!file.is_open() || file.bad()) return path + " cannot be read";
    if (file.gcount() > kMostBytes) return path + " is too long for " + what;
    text->resize(static_cast<size_t>(file.gcount()));
    return "";
}

std::string ReadSettingsFile(const std::string& path, Settings* settings) {
    std::string text;
    if (std::string fault = ReadSmallFile(path, "a settings file", &text); !fault.empty())
        return fault;
    const std::string fault = ReadSettings(text, settings);
    return fault.empty() ? "" : path + ':' + fault;
}

std::string SettingsNamed(const std::string& name, Settings* settings) {
    if (const Preset* const preset = FindPreset(name)) {
        *settings = SettingsOf(*preset);
        return "";
    }
    std::error_code ignored;
    if (name.find('/') != std::string::npos || std::filesystem::exists(name, ignored))
        return ReadSettingsFile(name, settings);
    std::string names;
    for (const Preset& preset : Presets())
        names += (names.empty() ? "" : ", ") + std::string(preset.name);
    return "no preset or file is called " + name + "; the presets are " + names;
}
