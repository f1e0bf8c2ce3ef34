#include "tools/settings_options.h"

#include <algorithm>
#include <charconv>

#include "tools/failure.h"

namespace {

template <typename Number>
Number Parse(const std::string& text) {
    Number value{};
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc() || stop != end)
        throw UsageError("--eq takes ten levels, or BAND=LEVEL, not \"" + text + "\"");
    return value;
}

// "l0,l1,...,l9" or "BAND=LEVEL,...".
void ApplyEqualizer(const std::string& text, Settings* settings) {
    const std::vector<std::string> items = CLI::detail::split(text, ',');
    const auto named = std::count(text.begin(), text.end(), '=');
    if (items.size() != (named == 0 ? kBandCount : static_cast<size_t>(named)))
        throw UsageError("--eq takes ten levels, or BAND=LEVEL, not \"" + text + "\"");
    for (size_t i = 0; i < items.size(); ++i) {
        const std::string& item = items.at(i);
        const size_t equals = item.find('=');
        if (equals == std::string::npos)
            settings->SetBand(i, Parse<double>(item));
        else
            settings->SetBand(Parse<size_t>(item.substr(0, equals)),
                              Parse<double>(item.substr(equals + 1)));
    }
}

std::string HelpText(const Parameter& parameter) {
    std::string text = parameter.law;
    if (parameter.kind == ParameterKind::kSwitch) return text;
    const std::string unit = parameter.unit;
    text += " (" + RangeText(parameter) + (unit == "1" ? "" : ", " + unit) + "; " +
            NumberText(parameter.defaultValue) + ")";
    return text;
}

}  // namespace

void SettingsOptions::AddTo(CLI::App& command) {
    const std::string group = "Settings (range, unit; value where the preset says nothing)";
    command.add_option("--preset", presetName, "named settings to start from")
        ->type_name("NAME")
        ->capture_default_str()
        ->group(group);
    for (const Parameter& parameter : kParameters) {
        const std::string option = parameter.key;
        if (option.empty()) continue;
        if (parameter.kind == ParameterKind::kSwitch) {
            command
                .add_flag_function(
                    std::string("--").append(option).append(",!--no-").append(option),
                    [this, id = parameter.id](int64_t count) {
                        given.emplace_back(id, count > 0 ? 1 : 0);
                    },
                    HelpText(parameter))
                ->group(group);
        } else if (parameter.kind == ParameterKind::kBandValue) {
            command.add_option("--" + option, equalizer, HelpText(parameter))
                ->type_name("L0,...,L9 or BAND=LEVEL")
                ->allow_extra_args(false)
                ->group(group);
        } else {
            command
                .add_option_function<double>(
                    "--" + option,
                    [this, id = parameter.id](double value) { given.emplace_back(id, value); },
                    HelpText(parameter))
                ->type_name("NUMBER")
                ->group(group);
        }
    }
}

Settings SettingsOptions::Resolve() const {
    Settings settings = FindPreset(presetName).settings;
    for (const auto& [id, value] : given) settings.Set(id, value);
    for (const std::string& text : equalizer) ApplyEqualizer(text, &settings);
    return settings;
}

std::vector<std::string> SettingsOptions::Idle() const {
    const Settings settings = Resolve();
    std::vector<std::string> lines;
    for (const auto& [id, value] : given) {
        const Parameter& parameter = ParameterOf(id);
        if (parameter.needs != kNoSwitch && settings.Get(parameter.needs) == 0)
            lines.push_back(std::string("--") + parameter.key + " does nothing without --" +
                            ParameterOf(parameter.needs).key);
    }
    return lines;
}

std::string PresetList() {
    std::string text;
    for (const Preset& preset : Presets())
        text += std::string(preset.name) + (&preset == &Presets().front() ? " (default)" : "") +
                "\n    " + preset.description + "\n    " + preset.settings.Describe() + "\n";
    return text;
}
