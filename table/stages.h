// The one table of the chain's stages, in their order: what the code outside them, the measurements
// and the documents must know of each.
#pragma once
#include <array>
#include <cstddef>
#include <cstdint>

#include "table/parameters.h"

struct StageRow {
    const char* name;          // also the group of its parameters
    const char* className;     // in the names of its functions
    ParameterId enable;        // its switch; kNoSwitch: always on
    uint32_t delayFrames;      // from input to output while it is on
    uint32_t blockFrames = 0;  // how many frames it collects before it returns any; 0: none
};

inline constexpr StageRow kStages[] = {
    {"playback gain", "PlaybackGain", PARAM_PLAYBACKGAIN_ENABLE, 255},  // limiters of its own
    {"equalizer", "FIREqualizer", PARAM_EQUALIZER_ENABLE, 256},         // half its symmetric filter
    // Half its kernels, as the band above 1800 Hz is heard. The lower bands come 0.2 and 2.85 ms
    // later, which is the sound of it.
    {"enhancer", "OrvaneSound", PARAM_ENHANCER_ENABLE, 127, 770},
    {"output", "Limiter", kNoSwitch, 255},  // look-ahead
};

inline constexpr size_t kSwitchCount = [] {
    size_t count = 0;
    for (const StageRow& stage : kStages) count += stage.enable != kNoSwitch ? 1 : 0;
    return count;
}();
// The switches of the stages that have one.
inline constexpr auto kStageSwitches = [] {
    std::array<ParameterId, kSwitchCount> switches{};
    size_t n = 0;
    for (const StageRow& stage : kStages)
        if (stage.enable != kNoSwitch) switches[n++] = stage.enable;
    return switches;
}();
