// The one table of parameters: what an application may set and ask, by identifier, with the names,
// units, ranges, defaults and laws that every front end and every document shows.
//
// On the wire a parameter is one to four int32 values. A value in units is sent times `wireScale`:
// level -0.45 of band 3 goes as the two integers 3 and -45.
#pragma once
#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>

#include "dsp/stream.h"

enum ParameterId : int32_t {
    PARAM_GET_VERSION = 0x8001,
    PARAM_GET_ENABLED = 0x8002,
    PARAM_GET_READY = 0x8003,
    PARAM_GET_PROCESSING = 0x8004,
    PARAM_GET_MODE = 0x8005,
    PARAM_GET_SAMPLING_RATE = 0x8006,
    PARAM_GET_CHANNELS = 0x8007,

    PARAM_SET_TIMESTAMP_ENABLE = 0x9001,

    PARAM_SET_MODE = 0x20001,
    PARAM_PLAYBACKGAIN_ENABLE = 0x20002,
    PARAM_PLAYBACKGAIN_RATIO = 0x20003,
    PARAM_PLAYBACKGAIN_VOLUME = 0x20004,
    PARAM_PLAYBACKGAIN_MAXGAIN = 0x20005,
    PARAM_EQUALIZER_ENABLE = 0x20006,
    PARAM_EQUALIZER_BANDLEVEL = 0x20007,
    PARAM_ENHANCER_ENABLE = 0x20008,
    PARAM_ENHANCER_PROCESS = 0x20009,
    PARAM_ENHANCER_LOCONTOUR = 0x2000A,
    PARAM_OUTPUT_GAIN = 0x2000B,
    PARAM_LIMITER_GATE = 0x2000C,
};

constexpr int32_t kLibraryVersionWord = 0x02010002;  // main, sub, ext, build; one byte each

enum class ParameterKind {
    kSwitch,     // 0 is off, anything else on
    kValue,      // one value: units times wireScale
    kBandValue,  // two values: the band, then units times wireScale
    kQuery,      // asked, never set
};

constexpr int32_t kBandCount = 10;  // of the equalizer, 0 is the lowest

constexpr ParameterId kNoSwitch{};

struct Parameter {
    ParameterId id;
    const char* name;
    const char* key = "";    // in options, settings files and ports; "" for what no listener sets
    const char* group = "";  // the processor that it belongs to
    ParameterId needs = kNoSwitch;  // the switch without which it does nothing
    ParameterKind kind;
    const char* unit;         // of minimum, maximum and defaultValue
    double minimum;           // of what makes sense; the library takes any int32
    double maximum;           // "
    double defaultValue = 0;  // of a new instance
    int32_t wireScale = 1;    // integers on the wire per unit
    const char* law;          // what a value does

    // The integer to send for a value in the range, rounded to the nearest.
    constexpr int32_t OnWire(double value) const {
        return static_cast<int32_t>(value * wireScale + (value < 0 ? -0.5 : 0.5));
    }
    // The value that the library takes `value` for: the nearest that can be sent.
    constexpr double Sendable(double value) const {
        return static_cast<double>(OnWire(value)) / wireScale;
    }
    // False if a new instance has a value that no command can restore: the gate, 0.9999.
    constexpr bool CanSendDefault() const { return Sendable(defaultValue) == defaultValue; }
};

// In the order of the chain, queries last.
constexpr Parameter kParameters[] = {
    {.id = PARAM_PLAYBACKGAIN_ENABLE,
     .name = "PARAM_PLAYBACKGAIN_ENABLE",
     .key = "playback-gain",
     .group = "playback gain",
     .kind = ParameterKind::kSwitch,
     .unit = "switch",
     .minimum = 0,
     .maximum = 1,
     .law =
         "automatic gain: once per buffer, pulls the weighted level toward 23 dB below full scale"},
    {.id = PARAM_PLAYBACKGAIN_RATIO,
     .name = "PARAM_PLAYBACKGAIN_RATIO",
     .key = "ratio",
     .group = "playback gain",
     .needs = PARAM_PLAYBACKGAIN_ENABLE,
     .kind = ParameterKind::kValue,
     .unit = "1",
     .minimum = 0,
     .maximum = 10,
     .defaultValue = 1,
     .wireScale = 100,
     .law = "a level L dB from the reference becomes L / (ratio + 1); 0 leaves levels alone"},
    {.id = PARAM_PLAYBACKGAIN_VOLUME,
     .name = "PARAM_PLAYBACKGAIN_VOLUME",
     .key = "volume",
     .group = "playback gain",
     .needs = PARAM_PLAYBACKGAIN_ENABLE,
     .kind = ParameterKind::kValue,
     .unit = "factor",
     .minimum = 0,
     .maximum = 127,
     .defaultValue = 1,
     .wireScale = 100,
     .law = "multiplies the automatic gain"},
    {.id = PARAM_PLAYBACKGAIN_MAXGAIN,
     .name = "PARAM_PLAYBACKGAIN_MAXGAIN",
     .key = "max-gain",
     .group = "playback gain",
     .needs = PARAM_PLAYBACKGAIN_ENABLE,
     .kind = ParameterKind::kValue,
     .unit = "factor",
     .minimum = 0,
     .maximum = 127,
     .defaultValue = 1,
     .wireScale = 100,
     .law = "largest total gain, automatic gain times volume; 1 only attenuates"},
    {.id = PARAM_EQUALIZER_ENABLE,
     .name = "PARAM_EQUALIZER_ENABLE",
     .key = "equalizer",
     .group = "equalizer",
     .kind = ParameterKind::kSwitch,
     .unit = "switch",
     .minimum = 0,
     .maximum = 1,
     .law = "ten-band linear-phase equalizer, 256 frames of delay"},
    {.id = PARAM_EQUALIZER_BANDLEVEL,
     .name = "PARAM_EQUALIZER_BANDLEVEL",
     .key = "eq",
     .group = "equalizer",
     .needs = PARAM_EQUALIZER_ENABLE,
     .kind = ParameterKind::kBandValue,
     .unit = "level",
     .minimum = -1,
     .maximum = 1,
     .wireScale = 100,
     .law = "one of ten overlapping bands, 0 (lowest) to 9: gain 1 + level below 0, 1 + 2 level "
            "above, "
            "when all ten have it; one alone at +1 gives +7 dB and -9 an octave up, 9 alone takes "
            "all below it away"},
    {.id = PARAM_ENHANCER_ENABLE,
     .name = "PARAM_ENHANCER_ENABLE",
     .key = "enhancer",
     .group = "enhancer",
     .kind = ParameterKind::kSwitch,
     .unit = "switch",
     .minimum = 0,
     .maximum = 1,
     .law = "three bands split at 150 and 1800 Hz, set off in time and added again"},
    {.id = PARAM_ENHANCER_PROCESS,
     .name = "PARAM_ENHANCER_PROCESS",
     .key = "process",
     .group = "enhancer",
     .needs = PARAM_ENHANCER_ENABLE,
     .kind = ParameterKind::kValue,
     .unit = "factor",
     .minimum = 0,
     .maximum = 4,
     .defaultValue = 1,
     .wireScale = 100,
     .law = "gain of the enhancer's band above 1800 Hz"},
    {.id = PARAM_ENHANCER_LOCONTOUR,
     .name = "PARAM_ENHANCER_LOCONTOUR",
     .key = "lo-contour",
     .group = "enhancer",
     .needs = PARAM_ENHANCER_ENABLE,
     .kind = ParameterKind::kValue,
     .unit = "1",
     .minimum = 0,
     .maximum = 4,
     .wireScale = 100,
     .law = "resonance at 55 Hz added to the sound: quality factor is level + 0.1"},
    {.id = PARAM_OUTPUT_GAIN,
     .name = "PARAM_OUTPUT_GAIN",
     .key = "output-gain",
     .group = "output",
     .kind = ParameterKind::kValue,
     .unit = "factor",
     .minimum = 0,
     .maximum = 16,
     .defaultValue = 1,
     .wireScale = 100,
     .law = "linear gain before the output limiters; a negative one inverts the polarity"},
    {.id = PARAM_LIMITER_GATE,
     .name = "PARAM_LIMITER_GATE",
     .key = "gate",
     .group = "output",
     .kind = ParameterKind::kValue,
     .unit = "full scale",
     .minimum = 0,
     .maximum = 1,
     .defaultValue = 0.9999,
     .wireScale = 100,
     .law = "no output sample exceeds it"},
    {.id = PARAM_SET_MODE,
     .name = "PARAM_SET_MODE",
     .group = "host",
     .kind = ParameterKind::kValue,
     .unit = "0 or 1",
     .minimum = 0,
     .maximum = 1,
     .law = "the host's own mark; a change resets the chain, other values are ignored"},
    {.id = PARAM_SET_TIMESTAMP_ENABLE,
     .name = "PARAM_SET_TIMESTAMP_ENABLE",
     .group = "host",
     .kind = ParameterKind::kSwitch,
     .unit = "switch",
     .minimum = 0,
     .maximum = 1,
     .law = "notes the time of every buffer, for PARAM_GET_PROCESSING"},
    {.id = PARAM_GET_VERSION,
     .name = "PARAM_GET_VERSION",
     .group = "host",
     .kind = ParameterKind::kQuery,
     .unit = "4 bytes",
     .minimum = 0,
     .maximum = 0,
     .defaultValue = kLibraryVersionWord,
     .law = "version: main, sub, ext, build from the top byte down"},
    {.id = PARAM_GET_ENABLED,
     .name = "PARAM_GET_ENABLED",
     .group = "host",
     .kind = ParameterKind::kQuery,
     .unit = "0 or 1",
     .minimum = 0,
     .maximum = 1,
     .law = "whether the framework has enabled the effect"},
    {.id = PARAM_GET_READY,
     .name = "PARAM_GET_READY",
     .group = "host",
     .kind = ParameterKind::kQuery,
     .unit = "0 or 1",
     .minimum = 0,
     .maximum = 1,
     .law = "whether a configuration was accepted and every processor is ready"},
    {.id = PARAM_GET_PROCESSING,
     .name = "PARAM_GET_PROCESSING",
     .group = "host",
     .needs = PARAM_SET_TIMESTAMP_ENABLE,
     .kind = ParameterKind::kQuery,
     .unit = "0 or 1",
     .minimum = 0,
     .maximum = 1,
     .law = "whether a buffer was processed in the last second; needs PARAM_SET_TIMESTAMP_ENABLE"},
    {.id = PARAM_GET_MODE,
     .name = "PARAM_GET_MODE",
     .group = "host",
     .kind = ParameterKind::kQuery,
     .unit = "0 or 1",
     .minimum = 0,
     .maximum = 1,
     .law = "the mode last set"},
    {.id = PARAM_GET_SAMPLING_RATE,
     .name = "PARAM_GET_SAMPLING_RATE",
     .group = "host",
     .kind = ParameterKind::kQuery,
     .unit = "Hz",
     .minimum = kLowestRateHz,
     .maximum = kHighestRateHz,
     .defaultValue = 44100,
     .law = "sampling rate of the configuration"},
    {.id = PARAM_GET_CHANNELS,
     .name = "PARAM_GET_CHANNELS",
     .group = "host",
     .kind = ParameterKind::kQuery,
     .unit = "count",
     .minimum = 1,
     .maximum = kMaxChannels,
     .defaultValue = 2,
     .law = "channels of the configuration"},
};

// The row of an identifier. Only for the identifiers above: each has a row.
constexpr const Parameter& ParameterOf(ParameterId id) {
    size_t row = 0;
    while (kParameters[row].id != id) ++row;
    return kParameters[row];
}

// What the library itself takes of each row. No texts, which would fill a device's memory.
struct ParameterRule {
    ParameterId id;
    ParameterKind kind;
    float defaultValue;
    int32_t wireScale;
};
inline constexpr auto kParameterRules = [] {
    std::array<ParameterRule, std::size(kParameters)> rules{};
    for (size_t row = 0; row < rules.size(); ++row) {
        const Parameter& p = kParameters[row];
        rules[row] = {p.id, p.kind, static_cast<float>(p.defaultValue), p.wireScale};
    }
    return rules;
}();
