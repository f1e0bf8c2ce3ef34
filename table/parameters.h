// The only table of parameters: everything that an application may set or ask for. Each row has an
// identifier and the names, unit, range, default and law that every front end and document shows.
//
// On the wire a parameter is one to four int32 values. A value in units is multiplied by
// `wireScale` and sent as an integer: level -0.45 of band 3 is sent as the two integers 3 and -45.
//
// Everything here is constant. Thread: any; nothing allocates.
#pragma once
#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>

#include "dsp/samples.h"

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

// The library's version, one byte each: main, sub, ext, build, from the highest byte down.
constexpr int32_t kLibraryVersionWord = 0x02010002;

enum class ParameterKind {
    kSwitch,     // 0 is off, anything else on
    kValue,      // one value: units times wireScale
    kBandValue,  // two values: the band, then units times wireScale
    kQuery,      // can be asked for but not set
};

constexpr int32_t kBandCount = 10;  // bands of the equalizer; band 0 is the lowest

constexpr ParameterId kNoSwitch{};

// The unit of a row's minimum, maximum, default and trial value.
enum class Unit {
    kNumber,     // no unit
    kSwitch,     // 0 or 1
    kFactor,     // linear gain
    kFullScale,  // linear amplitude; the largest sample is 1
    kLevel,      // of an equalizer band: -1 mutes, 0 changes nothing, 1 is a gain of 3
    kZeroOrOne,
    kBytes,
    kHertz,
    kCount,
};
constexpr const char* UnitText(Unit unit) {
    constexpr const char* kTexts[] = {"1",      "switch",  "factor", "full scale", "level",
                                      "0 or 1", "4 bytes", "Hz",     "count"};
    return kTexts[static_cast<size_t>(unit)];
}

// A row of the table states the members before the blank line. Switch(), Value() and the functions
// after them fill in the others.
struct Parameter {
    ParameterId id;
    const char* name;
    // Its name in options, settings files and ports; "" if no listener sets it.
    const char* key = "";
    const char* label = "";         // a listener's words for it
    const char* group = "host";     // the stage that it belongs to
    ParameterId needs = kNoSwitch;  // the switch that must be on for it to have an effect
    Unit unit = Unit::kSwitch;
    double minimum = 0;  // the range that front ends offer; the library takes any int32
    double maximum = 1;
    double defaultValue = 0;  // the value of a new instance
    double trial = 0;         // a usual value away from the default, for tests and measurements
    const char* law;          // what a value does, for documents and help

    ParameterKind kind = ParameterKind::kSwitch;
    int32_t wireScale = 1;  // integers on the wire per unit
    bool isRamped = false;  // true if the library moves gradually to a new value
    // True for a switch that follows its values: as long as nobody sets it, front ends switch it on
    // when a value that needs it isn't the default.
    bool followsItsValues = false;

    // Returns true for a linear gain or amplitude, which listeners read in dB.
    constexpr bool IsGain() const { return unit == Unit::kFactor || unit == Unit::kFullScale; }
    // Returns the integer to send for a value in the range, rounded to the nearest. Halves are
    // rounded away from 0.
    constexpr int32_t OnWire(double value) const {
        return static_cast<int32_t>(value * wireScale + (value < 0 ? -0.5 : 0.5));
    }
    // Returns the value that the library gets when `value` is sent: the nearest that can be sent.
    constexpr double Sendable(double value) const {
        return static_cast<double>(OnWire(value)) / wireScale;
    }
    // Returns false if no command can restore the default of a new instance. Only the gate's
    // default, 0.9999, can't be restored.
    constexpr bool CanSendDefault() const { return Sendable(defaultValue) == defaultValue; }
};

constexpr Parameter Switch(Parameter row) {
    row.trial = 1;
    return row;
}
constexpr Parameter SwitchByValues(Parameter row) {
    row.followsItsValues = true;
    return Switch(row);
}
constexpr Parameter Value(Parameter row) {
    row.kind = ParameterKind::kValue;
    row.wireScale = 100;
    return row;
}
constexpr Parameter RampedValue(Parameter row) {
    row.isRamped = true;
    return Value(row);
}
constexpr Parameter BandValue(Parameter row) {
    row = Value(row);
    row.kind = ParameterKind::kBandValue;
    return row;
}
constexpr Parameter HostValue(Parameter row) {
    row.kind = ParameterKind::kValue;
    return row;
}
constexpr Parameter Query(Parameter row) {
    row.kind = ParameterKind::kQuery;
    return row;
}

#define ORVANE_NAMED(identifier) .id = identifier, .name = #identifier  // NOLINT(*-parentheses)

// The rows are in the order of the chain; queries are last.
constexpr Parameter kParameters[] = {
    Switch({ORVANE_NAMED(PARAM_PLAYBACKGAIN_ENABLE), .key = "playback-gain",
            .label = "Automatic level", .group = "playback gain",
            .law = "automatic gain control. Once per buffer, it measures the weighted level and "
                   "moves it closer to 23 dB below full scale"}),
    RampedValue({ORVANE_NAMED(PARAM_PLAYBACKGAIN_RATIO), .key = "ratio",
                 .label = "Levelling strength", .group = "playback gain",
                 .needs = PARAM_PLAYBACKGAIN_ENABLE, .unit = Unit::kNumber, .maximum = 10,
                 .defaultValue = 1, .trial = 1.5,
                 .law = "a level that is L dB away from the reference moves to L / (ratio + 1) dB. "
                        "0 leaves levels unchanged"}),
    RampedValue({ORVANE_NAMED(PARAM_PLAYBACKGAIN_VOLUME), .key = "volume",
                 .label = "Level after levelling", .group = "playback gain",
                 .needs = PARAM_PLAYBACKGAIN_ENABLE, .unit = Unit::kFactor, .maximum = 127,
                 .defaultValue = 1, .trial = 1.3,
                 .law = "linear gain that multiplies the automatic gain"}),
    RampedValue({ORVANE_NAMED(PARAM_PLAYBACKGAIN_MAXGAIN), .key = "max-gain",
                 .label = "Largest boost", .group = "playback gain",
                 .needs = PARAM_PLAYBACKGAIN_ENABLE, .unit = Unit::kFactor, .maximum = 127,
                 .defaultValue = 1, .trial = 4,
                 .law = "upper limit of the total gain, which is the automatic gain times the "
                        "volume. At 1, levels are only lowered"}),
    SwitchByValues({ORVANE_NAMED(PARAM_EQUALIZER_ENABLE), .key = "equalizer", .label = "Equalizer",
                    .group = "equalizer",
                    .law = "ten-band linear-phase equalizer with 256 frames of delay"}),
    BandValue({ORVANE_NAMED(PARAM_EQUALIZER_BANDLEVEL), .key = "eq", .label = "Band",
               .group = "equalizer", .needs = PARAM_EQUALIZER_ENABLE, .unit = Unit::kLevel,
               .minimum = -1, .maximum = 1, .trial = 0.3,
               .law = "level of one of ten overlapping bands, 0 (lowest) to 9. If all ten have the "
                      "same level, the gain is 1 + level below 0 and 1 + 2 level above. One band "
                      "alone at +1 gives about +7 dB at its centre and -9 dB an octave above. Band "
                      "9 alone removes everything below it"}),
    Switch({ORVANE_NAMED(PARAM_ENHANCER_ENABLE), .key = "enhancer", .label = "Enhancer",
            .group = "enhancer",
            .law = "splits the sound into three bands at 150 and 1800 Hz, delays the bands against "
                   "each other and adds them again"}),
    Value({ORVANE_NAMED(PARAM_ENHANCER_PROCESS), .key = "process", .label = "Treble",
           .group = "enhancer", .needs = PARAM_ENHANCER_ENABLE, .unit = Unit::kFactor, .maximum = 4,
           .defaultValue = 1, .trial = 1.8, .law = "gain of the enhancer's band above 1800 Hz"}),
    Value({ORVANE_NAMED(PARAM_ENHANCER_LOCONTOUR), .key = "lo-contour", .label = "Bass resonance",
           .group = "enhancer", .needs = PARAM_ENHANCER_ENABLE, .unit = Unit::kNumber, .maximum = 4,
           .trial = 0.7,
           .law =
               "adds a resonance at 55 Hz, whose quality factor is this level + 0.1. 0 adds none"}),
    Value({ORVANE_NAMED(PARAM_OUTPUT_GAIN), .key = "output-gain", .label = "Output gain",
           .group = "output", .unit = Unit::kFactor, .maximum = 16, .defaultValue = 1, .trial = 1.4,
           .law = "linear gain before the output limiters. A negative gain inverts the polarity"}),
    Value({ORVANE_NAMED(PARAM_LIMITER_GATE), .key = "gate", .label = "Peak limit",
           .group = "output", .unit = Unit::kFullScale, .maximum = 1, .defaultValue = 0.9999,
           .trial = 0.8, .law = "no output sample is larger than this"}),
    HostValue({ORVANE_NAMED(PARAM_SET_MODE), .unit = Unit::kZeroOrOne,
               .law = "a mark for the host's own use. A change resets the chain, and values other "
                      "than 0 and 1 are ignored"}),
    Switch({ORVANE_NAMED(PARAM_SET_TIMESTAMP_ENABLE),
            .law = "stores the time of every buffer. PARAM_GET_PROCESSING needs it"}),
    Query({ORVANE_NAMED(PARAM_GET_VERSION), .unit = Unit::kBytes, .maximum = 0,
           .defaultValue = kLibraryVersionWord,
           .law = "version: main, sub, ext and build, one byte each, from the top byte down"}),
    Query({ORVANE_NAMED(PARAM_GET_ENABLED), .unit = Unit::kZeroOrOne,
           .law = "whether the framework has enabled the effect"}),
    Query({ORVANE_NAMED(PARAM_GET_READY), .unit = Unit::kZeroOrOne,
           .law = "whether a configuration was accepted and every processor is ready"}),
    Query({ORVANE_NAMED(PARAM_GET_PROCESSING), .needs = PARAM_SET_TIMESTAMP_ENABLE,
           .unit = Unit::kZeroOrOne,
           .law = "whether a buffer was processed in the last second; needs "
                  "PARAM_SET_TIMESTAMP_ENABLE"}),
    Query({ORVANE_NAMED(PARAM_GET_MODE), .unit = Unit::kZeroOrOne, .law = "the mode last set"}),
    Query({ORVANE_NAMED(PARAM_GET_SAMPLING_RATE), .unit = Unit::kHertz, .minimum = kLowestRateHz,
           .maximum = kHighestRateHz, .defaultValue = 44100,
           .law = "sampling rate of the configuration"}),
    Query({ORVANE_NAMED(PARAM_GET_CHANNELS), .unit = Unit::kCount, .minimum = 1,
           .maximum = kMaxChannels, .defaultValue = 2, .law = "channels of the configuration"}),
};
#undef ORVANE_NAMED

// Returns the row of an identifier. Every identifier of ParameterId has one; others are not
// allowed.
constexpr const Parameter& ParameterOf(ParameterId id) {
    size_t row = 0;
    while (kParameters[row].id != id) ++row;
    return kParameters[row];
}

// The part of each row that the library itself needs. It has no texts, to save a device's memory.
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
