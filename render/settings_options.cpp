#include "render/settings_options.h"

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "client/presets.h"
#include "client/settings_text.h"
#include "render/audio/output_file.h"
#include "render/audio/whole_write.h"
#include "render/failure.h"

namespace {

std::string HelpText(const Parameter& parameter) {
    std::string text = parameter.law;
    if (parameter.kind == ParameterKind::kSwitch) return text;
    const std::string unit = parameter.unit;
    return text + " (" + RangeText(parameter) + (unit == "1" ? "" : ", " + unit) + "; " +
           DefaultText(parameter) + ")";
}

Settings ReadSettingsFile(const std::string& path) {
    std::ifstream file(path);
    std::string text{std::istreambuf_iterator<char>(file), {}};
    if (!file.is_open() || file.bad()) throw UsageError(path + " can't be read");
    Settings settings;
    const std::string fault = ReadSettings(text, &settings);
    if (!fault.empty()) throw UsageError(path + ":" + fault);
    return settings;
}

// By a preset's name, else by the path of a settings file.
Settings StartFrom(const std::string& name) {
    if (const Preset* const preset = FindPreset(name)) return SettingsOf(*preset);
    std::error_code ignored;
    if (name.find('/') != std::string::npos || std::filesystem::exists(name, ignored))
        return ReadSettingsFile(name);
    throw UsageError("no preset or file is called " + name + ", see --list-presets");
}

}  // namespace

SettingsOptions::SettingsOptions() : preset(Presets().front().name) {}

void SettingsOptions::AddTo(CLI::App& command) {
    const std::string group = "Settings (range, unit; value where the preset says nothing)";
    command.add_option("--preset", preset, "named settings to start from, or a file of --save")
        ->type_name("NAME or FILE")
        ->capture_default_str()
        ->group(group);
    command.add_option("--save", saveTo, "also write the settings to a file that --preset takes")
        ->type_name("FILE")
        ->group(group);
    for (const Parameter& parameter : kParameters) {
        const std::string key = parameter.key;
        if (key.empty()) continue;
        const auto take = [this, &parameter](const std::string& text) {
            given.emplace_back(&parameter, text);
        };
        CLI::Option* option = nullptr;
        if (parameter.kind == ParameterKind::kSwitch)
            option = command.add_flag_function(
                std::string("--").append(key).append(",!--no-").append(key),
                [take](int64_t count) { take(count > 0 ? "on" : "off"); }, HelpText(parameter));
        else if (parameter.kind == ParameterKind::kBandValue)
            option = command
                         .add_option_function<std::vector<std::string>>(
                             "--" + key,
                             [take](const std::vector<std::string>& texts) {
                                 for (const std::string& text : texts) take(text);
                             },
                             HelpText(parameter))
                         ->allow_extra_args(false)
                         ->type_name("L0,...,L9 or BAND=LEVEL");
        else
            option =
                command.add_option_function<std::string>("--" + key, take, HelpText(parameter))
                    ->type_name("NUMBER");
        option->group(group);
    }
}

Settings SettingsOptions::Resolve() const {
    Settings settings = StartFrom(preset);
    for (const auto& [parameter, text] : given) {
        const std::string fault = SetFromText(parameter->key, text, &settings);
        if (!fault.empty()) throw UsageError("--" + fault);
    }
    return settings;
}

std::vector<std::string> SettingsOptions::Idle() const {
    const Settings settings = Resolve();
    std::vector<std::string> lines;
    for (const auto& [parameter, text] : given)
        if (!settings.Acts(*parameter))
            lines.push_back(std::string("--") + parameter->key + " does nothing without --" +
                            ParameterOf(parameter->needs).key);
    return lines;
}

void SettingsOptions::CheckSave(const std::vector<std::string>& others, bool overwrite) const {
    if (saveTo.empty()) return;
    for (const std::string& other : others)
        if (!other.empty() && (other == saveTo || AreOneFile(other, saveTo)))
            throw UsageError(other + " and the settings are the same file");
    OutputFile::CheckName(saveTo, overwrite);
}

void SettingsOptions::Save(bool overwrite) const {
    if (saveTo.empty()) return;
    OutputFile file(saveTo, overwrite);
    const std::string text = SettingsText(Resolve());
    if (const int error = WriteAll(file.Descriptor(), text.data(), text.size()))
        throw Failure(saveTo + " can't be written: " + std::strerror(error));
    file.Commit();
}

std::string PresetList() {
    std::string text;
    for (const Preset& preset : Presets())
        text += std::string(preset.name) + (&preset == &Presets().front() ? " (default)" : "") +
                "\n    " + preset.description + "\n    " + Describe(SettingsOf(preset)) + "\n";
    return text;
}
