#include "client/presets.h"

#include <algorithm>

namespace {

// The band levels are fitted to each preset's aim on a third-octave scale. Output gains and gates
// are set so that the descriptions hold; docs/presets.md has the measurements.
constexpr Preset kPresets[] = {
    {.name = "music",
     .purpose = "more bass and air",
     .description =
         "a livelier sound: against the middle, bass below 100 Hz is 3 to 4 dB louder and treble "
         "above 5 kHz is 2 to 3 dB louder. Music and speech stay as loud as before within 2 LU",
     .values = {{PARAM_ENHANCER_ENABLE, 1},
                {PARAM_ENHANCER_PROCESS, 1.2},
                {PARAM_ENHANCER_LOCONTOUR, 0.1},
                {PARAM_OUTPUT_GAIN, 0.88}},
     .levels = {-0.1, 0.5, 0.5, 0, 0, -0.05, -0.15, 0, 0.05, 0.05}},
    {.name = "bass",
     .purpose = "much more bass",
     .description = "against the rest, bass below 110 Hz is 7 dB louder. Music stays as loud as "
                    "before within 2.5 LU; speech becomes 1 to 3.5 LU softer",
     .values = {{PARAM_ENHANCER_ENABLE, 1},
                {PARAM_ENHANCER_LOCONTOUR, 0.3},
                {PARAM_OUTPUT_GAIN, 0.7}},
     .levels = {-0.2, 1, 0.8, 0.05, -0.05, -0.15, 0, -0.1, 0.05, -0.05}},
    {.name = "steady",
     .purpose = "soft passages lifted",
     .description = "soft passages are lifted and the tone stays as it is. A loudness range of 5 "
                    "LU or more shrinks by a sixth to two thirds. Music at -26 to -20 LUFS becomes "
                    "1.5 to 4.5 LU louder, loud masters 1.5 to 4.5 LU softer",
     .values = {{PARAM_PLAYBACKGAIN_ENABLE, 1},
                {PARAM_PLAYBACKGAIN_MAXGAIN, 6},
                {PARAM_OUTPUT_GAIN, 0.65}}},
    {.name = "night",
     .purpose = "quiet listening at night",
     .description = "a loudness range of 5 LU or more shrinks to three fifths or less, deep bass "
                    "is reduced, and true peaks stay 10 dB below full scale",
     .values = {{PARAM_PLAYBACKGAIN_ENABLE, 1},
                {PARAM_PLAYBACKGAIN_RATIO, 3},
                {PARAM_PLAYBACKGAIN_MAXGAIN, 12},
                {PARAM_OUTPUT_GAIN, 0.25}},
     .levels = {-0.7, -0.4, -0.1, 0, 0, 0, 0, 0.1, -0.1, -0.05}},
    {.name = "voice",
     .purpose = "speech, easier to follow",
     .description = "brings speech out: evens its level, raises 1 to 6 kHz and lowers everything "
                    "below 200 Hz. Speech at -26 to -20 LUFS becomes up to 3.5 LU louder, louder "
                    "speech up to 4 LU softer",
     .values = {{PARAM_PLAYBACKGAIN_ENABLE, 1},
                {PARAM_PLAYBACKGAIN_RATIO, 2},
                {PARAM_PLAYBACKGAIN_MAXGAIN, 4},
                {PARAM_OUTPUT_GAIN, 0.55}},
     .levels = {-0.6, -0.55, -0.45, -0.2, 0, 0.05, 0.2, 0.4, -0.15, 0.1}},
    {.name = "loud",
     .purpose = "noisy places",
     .description =
         "for noisy places: music at -20 to -14 LUFS becomes 3 to 8 LU louder, softer music more; "
         "loud masters become at most 2.5 LU softer. True peaks stay below full scale",
     .values = {{PARAM_PLAYBACKGAIN_ENABLE, 1},
                {PARAM_PLAYBACKGAIN_MAXGAIN, 4},
                {PARAM_ENHANCER_ENABLE, 1},
                {PARAM_ENHANCER_PROCESS, 1.2},
                {PARAM_ENHANCER_LOCONTOUR, 0.1},
                {PARAM_OUTPUT_GAIN, 1.25},
                {PARAM_LIMITER_GATE, 0.78}},
     .levels = {-0.1, 0.5, 0.5, 0, 0, -0.05, -0.15, 0, 0.05, 0.05}},
    {.name = "off",
     .purpose = "no effect, for comparison",
     .description = "every processor is off. Only the output limiters remain"},
};

// Returns true if every value is in its row's range and survives the rounding to the wire.
constexpr bool AreSendable(const Preset& preset) {
    const auto isSendable = [](const Parameter& parameter, double value) {
        return value >= parameter.minimum && value <= parameter.maximum &&
               parameter.Sendable(value) == value;
    };
    for (const PresetValue& set : preset.values)
        if (set.id != kNoSwitch && !isSendable(ParameterOf(set.id), set.value)) return false;
    return std::all_of(preset.levels.begin(), preset.levels.end(), [&](double level) {
        return isSendable(ParameterOf(PARAM_EQUALIZER_BANDLEVEL), level);
    });
}
static_assert(std::all_of(std::begin(kPresets), std::end(kPresets), AreSendable));

}  // namespace

std::span<const Preset> Presets() {
    return kPresets;
}

const Preset* FindPreset(std::string_view name) {
    const auto* const found =
        std::find_if(std::begin(kPresets), std::end(kPresets),
                     [name](const Preset& preset) { return name == preset.name; });
    return found == std::end(kPresets) ? nullptr : found;
}

Settings SettingsOf(const Preset& preset) {
    Settings settings;
    for (const PresetValue& set : preset.values)
        if (set.id != kNoSwitch) settings.Set(set.id, set.value);
    if (preset.levels != Settings::Levels{})
        for (size_t band = 0; band < preset.levels.size(); ++band)
            settings.SetBand(band, preset.levels[band]);
    return settings;
}
