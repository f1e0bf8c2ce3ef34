// The one table of parameters: what an application may set and ask, by identifier, with the names,
// units, ranges, defaults and laws that every front end and every document shows.
//
// On the wire a parameter is one to four int32 values. A value in units is sent times `wireScale`:
// level -0.45 of band 3 goes as the two integers 3 and -45.
#pragma once
#include <cstdint>

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

struct Parameter {
    ParameterId id;
    const char* name;
    ParameterKind kind;
    const char* option;   // long option of the renderer without its dashes, "" if it has none
    const char* unit;     // of minimum, maximum and defaultValue
    double minimum;       // of what makes sense; the library takes any int32
    double maximum;       // "
    double defaultValue;  // of a new instance
    int32_t wireScale;    // integers on the wire per unit
    const char* law;      // what a value does
};

// In the order of the chain, queries last.
constexpr Parameter kParameters[] = {
    {PARAM_PLAYBACKGAIN_ENABLE, "PARAM_PLAYBACKGAIN_ENABLE", ParameterKind::kSwitch,
     "playback-gain", "switch", 0, 1, 0, 1,
     "automatic gain: once per buffer, pulls the weighted level toward 23 dB below full scale"},
    {PARAM_PLAYBACKGAIN_RATIO, "PARAM_PLAYBACKGAIN_RATIO", ParameterKind::kValue, "ratio", "1", 0,
     10, 1, 100, "a level L dB from the reference becomes L / (ratio + 1); 0 leaves levels alone"},
    {PARAM_PLAYBACKGAIN_VOLUME, "PARAM_PLAYBACKGAIN_VOLUME", ParameterKind::kValue, "volume",
     "factor", 0, 127, 1, 100, "multiplies the automatic gain"},
    {PARAM_PLAYBACKGAIN_MAXGAIN, "PARAM_PLAYBACKGAIN_MAXGAIN", ParameterKind::kValue, "max-gain",
     "factor", 0, 127, 1, 100,
     "largest total gain, automatic gain times volume; 1 only attenuates"},
    {PARAM_EQUALIZER_ENABLE, "PARAM_EQUALIZER_ENABLE", ParameterKind::kSwitch, "", "switch", 0, 1,
     0, 1, "ten-band linear-phase equalizer, 256 frames of delay"},
    {PARAM_EQUALIZER_BANDLEVEL, "PARAM_EQUALIZER_BANDLEVEL", ParameterKind::kBandValue, "eq",
     "level", -1, 1, 0, 100,
     "gain of one band, 0 (lowest) to 9: 1 + level below 0, 1 + 2 level above (-1 mutes, +1 is 3)"},
    {PARAM_ENHANCER_ENABLE, "PARAM_ENHANCER_ENABLE", ParameterKind::kSwitch, "enhancer", "switch",
     0, 1, 0, 1, "three bands split at 150 and 1800 Hz, set off in time and added again"},
    {PARAM_ENHANCER_PROCESS, "PARAM_ENHANCER_PROCESS", ParameterKind::kValue, "process", "factor",
     0, 4, 1, 100, "gain of the enhancer's band above 1800 Hz"},
    {PARAM_ENHANCER_LOCONTOUR, "PARAM_ENHANCER_LOCONTOUR", ParameterKind::kValue, "lo-contour", "1",
     0, 4, 0, 100, "resonance at 55 Hz added to the sound: quality factor is level + 0.1"},
    {PARAM_OUTPUT_GAIN, "PARAM_OUTPUT_GAIN", ParameterKind::kValue, "output-gain", "factor", 0, 16,
     1, 100, "linear gain before the output limiters; a negative one inverts the polarity"},
    {PARAM_LIMITER_GATE, "PARAM_LIMITER_GATE", ParameterKind::kValue, "gate", "full scale", 0, 1,
     0.9999, 100, "no output sample exceeds it"},
    {PARAM_SET_MODE, "PARAM_SET_MODE", ParameterKind::kValue, "", "0 or 1", 0, 1, 0, 1,
     "the host's own mark; a change resets the chain, other values are ignored"},
    {PARAM_SET_TIMESTAMP_ENABLE, "PARAM_SET_TIMESTAMP_ENABLE", ParameterKind::kSwitch, "", "switch",
     0, 1, 0, 1, "notes the time of every buffer, for PARAM_GET_PROCESSING"},
    {PARAM_GET_VERSION, "PARAM_GET_VERSION", ParameterKind::kQuery, "", "4 bytes", 0, 0,
     kLibraryVersionWord, 1, "version: main, sub, ext, build from the top byte down"},
    {PARAM_GET_ENABLED, "PARAM_GET_ENABLED", ParameterKind::kQuery, "", "0 or 1", 0, 1, 0, 1,
     "whether the framework has enabled the effect"},
    {PARAM_GET_READY, "PARAM_GET_READY", ParameterKind::kQuery, "", "0 or 1", 0, 1, 0, 1,
     "whether a configuration was accepted and every processor is ready"},
    {PARAM_GET_PROCESSING, "PARAM_GET_PROCESSING", ParameterKind::kQuery, "", "0 or 1", 0, 1, 0, 1,
     "whether a buffer was processed in the last second; needs PARAM_SET_TIMESTAMP_ENABLE"},
    {PARAM_GET_MODE, "PARAM_GET_MODE", ParameterKind::kQuery, "", "0 or 1", 0, 1, 0, 1,
     "the mode last set"},
    {PARAM_GET_SAMPLING_RATE, "PARAM_GET_SAMPLING_RATE", ParameterKind::kQuery, "", "Hz", 32000,
     48000, 44100, 1, "sampling rate of the configuration"},
    {PARAM_GET_CHANNELS, "PARAM_GET_CHANNELS", ParameterKind::kQuery, "", "count", 1, 2, 2, 1,
     "channels of the configuration"},
};
