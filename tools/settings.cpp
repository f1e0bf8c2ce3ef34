#include "tools/settings.h"

#include <algorithm>
#include <iterator>

#include "tools/failure.h"

namespace {

Settings Make(std::initializer_list<std::pair<ParameterId, double>> values,
              const std::array<double, kBandCount>& levels = {}) {
    Settings settings;
    for (const auto& [id, value] : values) settings.Set(id, value);
    for (size_t band = 0; band < kBandCount; ++band) settings.SetBand(band, levels.at(band));
    return settings;
}

double InRange(const Parameter& parameter, double value) {
    if (!(value >= parameter.minimum && value <= parameter.maximum))
        throw UsageError(std::string("--") + parameter.key + " " + NumberText(value) +
                         " is outside " + RangeText(parameter));
    return parameter.Sendable(value);
}

}  // namespace

std::string NumberText(double value) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%g", value);
    return text.data();
}

std::string RangeText(const Parameter& parameter) {
    return NumberText(parameter.minimum) + " to " + NumberText(parameter.maximum);
}

void Settings::Set(ParameterId id, double value) {
    values[id] = InRange(ParameterOf(id), value);
}

void Settings::SetBand(size_t band, double level) {
    if (band >= kBandCount) throw UsageError("--eq has bands 0 to 9");
    levels.at(band) = InRange(ParameterOf(PARAM_EQUALIZER_BANDLEVEL), level);
}

double Settings::Get(ParameterId id) const {
    const auto found = values.find(id);
    return found == values.end() ? ParameterOf(id).defaultValue : found->second;
}

bool Settings::EqualizerOn() const {
    const auto given = values.find(PARAM_EQUALIZER_ENABLE);
    if (given != values.end()) return given->second != 0;
    return std::any_of(levels.begin(), levels.end(), [](double level) { return level != 0; });
}

std::vector<ParameterWrite> Settings::Writes() const {
    std::vector<ParameterWrite> writes, switches;
    for (const auto& [id, value] : values) {
        const Parameter& parameter = ParameterOf(id);
        if (id == PARAM_EQUALIZER_ENABLE) continue;
        auto& target = parameter.kind == ParameterKind::kSwitch ? switches : writes;
        target.push_back({id, {parameter.OnWire(value)}});
    }
    const Parameter& bandLevel = ParameterOf(PARAM_EQUALIZER_BANDLEVEL);
    for (size_t band = 0; band < kBandCount; ++band)
        writes.push_back(
            {bandLevel.id, {static_cast<int32_t>(band), bandLevel.OnWire(levels.at(band))}});
    switches.push_back({PARAM_EQUALIZER_ENABLE, {EqualizerOn() ? 1 : 0}});
    writes.insert(writes.end(), switches.begin(), switches.end());
    return writes;
}

std::string Settings::Describe() const {
    std::string text;
    const auto add = [&text](const std::string& part) {
        text += (text.empty() ? "" : ", ") + part;
    };
    const auto named = [this](ParameterId id) {
        return std::string(ParameterOf(id).key) + " " + NumberText(Get(id));
    };
    if (PlaybackGainOn())
        add("playback gain (" + named(PARAM_PLAYBACKGAIN_RATIO) + ", " +
            named(PARAM_PLAYBACKGAIN_VOLUME) + ", " + named(PARAM_PLAYBACKGAIN_MAXGAIN) + ")");
    if (EqualizerOn()) {
        std::string bands;
        for (const double level : levels) bands += (bands.empty() ? "" : " ") + NumberText(level);
        add("equalizer (" + bands + ")");
    }
    if (EnhancerOn())
        add("enhancer (" + named(PARAM_ENHANCER_PROCESS) + ", " + named(PARAM_ENHANCER_LOCONTOUR) +
            ")");
    for (const ParameterId id : {PARAM_OUTPUT_GAIN, PARAM_LIMITER_GATE})
        if (Get(id) != ParameterOf(id).defaultValue) add(named(id));
    return text.empty() ? "output limiters only" : text;
}

const std::vector<Preset>& Presets() {
    static const std::vector<Preset> presets = {
        // Levels fitted to the aim on a third-octave scale; output gains set so that two pieces of
        // music, one dense and one quiet, come out about as loud as they went in (music, bass:
        // within 0.5 LU) or with the true peak that the description gives.
        {"music",
         "a livelier sound, about as loud as before: bass below 100 Hz and air above 4 kHz up by 3 "
         "to 4 dB against the middle",
         Make({{PARAM_ENHANCER_ENABLE, 1},
               {PARAM_ENHANCER_PROCESS, 1.2},
               {PARAM_ENHANCER_LOCONTOUR, 0.1},
               {PARAM_OUTPUT_GAIN, 0.75}},
              {-0.1, 0.5, 0.5, 0, 0, -0.05, -0.15, 0, 0.05, 0.05})},
        {"bass", "about as loud as before, with the bass below 110 Hz up by 7 dB against the rest",
         Make({{PARAM_ENHANCER_ENABLE, 1},
               {PARAM_ENHANCER_LOCONTOUR, 0.3},
               {PARAM_OUTPUT_GAIN, 0.55}},
              {-0.2, 1, 0.8, 0.05, -0.05, -0.15, 0, -0.1, 0.05, -0.05})},
        {"steady",
         "the tone as it is, soft passages lifted: takes a quarter to a third off the range",
         Make({{PARAM_PLAYBACKGAIN_ENABLE, 1},
               {PARAM_PLAYBACKGAIN_MAXGAIN, 6},
               {PARAM_OUTPUT_GAIN, 0.65}})},
        {"night", "half the loudness range, little deep bass, peaks 11 dB below full scale",
         Make({{PARAM_PLAYBACKGAIN_ENABLE, 1},
               {PARAM_PLAYBACKGAIN_RATIO, 3},
               {PARAM_PLAYBACKGAIN_MAXGAIN, 12},
               {PARAM_OUTPUT_GAIN, 0.25}},
              {-0.7, -0.4, -0.1, 0, 0, 0, 0, 0.1, -0.1, -0.05})},
        {"voice", "speech over everything else: levelled, 1 to 6 kHz up, below 200 Hz down",
         Make({{PARAM_PLAYBACKGAIN_ENABLE, 1},
               {PARAM_PLAYBACKGAIN_RATIO, 2},
               {PARAM_PLAYBACKGAIN_MAXGAIN, 4},
               {PARAM_OUTPUT_GAIN, 0.55}},
              {-0.6, -0.55, -0.45, -0.2, 0, 0.05, 0.2, 0.4, -0.15, 0.1})},
        {"loud", "music at a good 9 to 14 LU more, held 0.7 dB below full scale: for noisy places",
         Make({{PARAM_PLAYBACKGAIN_ENABLE, 1},
               {PARAM_PLAYBACKGAIN_MAXGAIN, 4},
               {PARAM_ENHANCER_ENABLE, 1},
               {PARAM_ENHANCER_PROCESS, 1.2},
               {PARAM_ENHANCER_LOCONTOUR, 0.1},
               {PARAM_OUTPUT_GAIN, 1.25},
               {PARAM_LIMITER_GATE, 0.85}},
              {-0.1, 0.5, 0.5, 0, 0, -0.05, -0.15, 0, 0.05, 0.05})},
        {"off", "every processor off; the output limiters remain", Make({})},
    };
    return presets;
}

const Preset& FindPreset(const std::string& name) {
    for (const Preset& preset : Presets())
        if (name == preset.name) return preset;
    throw UsageError("no preset is called " + name + ", see --list-presets");
}
