#include "render/settings_options.h"

#include <algorithm>
#include <cstring>

#include "client/presets.h"
#include "client/settings_file.h"
#include "client/settings_text.h"
#include "render/audio/output_file.h"
#include "render/audio/whole_write.h"
#include "render/failure.h"

namespace {

Settings StartFrom(const std::string& name) {
    Settings settings;
    const std::string fault = SettingsNamed(name, &settings);
    if (!fault.empty()) throw UsageError("{}", fault);
    return settings;
}

}  // namespace

SettingsOptions::SettingsOptions() : preset(Presets().front().name) {}

void SettingsOptions::AddTo(Options& options) {
    Options group = options.Group(
        "Settings (in parentheses: range, unit, and the default if the preset sets no value)");
    group.Add("--preset", &preset, "settings to start from: a preset, or a file that --save wrote")
        .Type("NAME or FILE")
        .ShowDefault();
    group.Add("--save", &saveTo, "also write the settings to a file that --preset takes")
        .Type("FILE");
    group
        .Add("--tone", &tone,
             "a tone curve in hertz and decibels. The ten band levels are computed from it. The "
             "curve has straight lines between the points and is flat outside them. The output "
             "gain is lowered to leave headroom. A file holds the curve of a headphone, as AutoEq "
             "publishes it: GraphicEQ or ParametricEQ")
        .Type("HZ:DB,HZ:DB,... or FILE");
    for (const Parameter& parameter : kParameters) {
        const std::string key = parameter.key;
        if (key.empty()) continue;
        const std::string name = "--" + key;
        const auto take = [this, &parameter](const std::string& text) {
            given.emplace_back(&parameter, text);
        };
        if (parameter.kind == ParameterKind::kSwitch)
            group.AddSwitch(
                fmt::format("--{0},!--no-{0}", key), [take](bool on) { take(on ? "on" : "off"); },
                HelpText(parameter));
        else if (parameter.kind == ParameterKind::kBandValue)
            group.AddRepeated(name, take, HelpText(parameter)).Type("L0,...,L9 or BAND=LEVEL");
        else
            group.Add(name, take, HelpText(parameter))
                .Type(parameter.IsGain() ? "NUMBER or -3dB" : "NUMBER");
    }
}

Settings SettingsOptions::Resolve() const {
    Settings settings = StartFrom(preset);
    for (const auto& [parameter, text] : given) {
        const std::string fault = SetFromText(parameter->key, text, &settings);
        if (!fault.empty()) throw UsageError("--{}", fault);
    }
    return settings;
}

bool SettingsOptions::Gives(ParameterId id) const {
    return std::any_of(given.begin(), given.end(),
                       [id](const auto& one) { return one.first->id == id; });
}

ToneWish SettingsOptions::Tone() const {
    ToneWish wish;
    wish.headroom = !Gives(PARAM_OUTPUT_GAIN);
    if (tone.empty()) return wish;
    if (Gives(PARAM_EQUALIZER_BANDLEVEL)) throw UsageError("--tone and --eq set the same levels");
    const std::string fault = ReadToneNamed(tone, &wish.curve);
    if (!fault.empty()) throw UsageError("--tone {}", fault);
    return wish;
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
            throw UsageError("{} and the settings are the same file", other);
    OutputFile::CheckName(saveTo, overwrite);
}

void SettingsOptions::Save(const Settings& settings, bool overwrite) const {
    if (saveTo.empty()) return;
    OutputFile file(saveTo, overwrite);
    const std::string text = SettingsText(settings);
    if (const int error = WriteAll(file.Descriptor(), text.data(), text.size()))
        throw Failure("{} cannot be written: {}", saveTo, std::strerror(error));
    file.Commit();
}

std::optional<ToneFit> ToneWish::Grant(double rateHz, Settings* settings) const {
    if (curve.points.empty()) return std::nullopt;
    const ToneFit fit = FitTone(curve.points, rateHz, curve.focus);
    ApplyTone(fit, headroom, settings);
    return fit;
}

std::string PresetList() {
    std::string text;
    for (const Preset& preset : Presets())
        text += std::string(preset.name) + (&preset == &Presets().front() ? " (default)" : "") +
                "\n    " + preset.description + "\n    " + Describe(SettingsOf(preset)) + "\n";
    return text;
}
