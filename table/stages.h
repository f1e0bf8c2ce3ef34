// The only table of the chain's stages, in their order. It holds what other code, the measurements
// and the documents must know of each stage. Everything here is constant. Thread: any.
#pragma once
#include <array>
#include <cstddef>
#include <cstdint>

#include "table/parameters.h"

struct StageRow {
    const char* name;       // also the group of its parameters
    const char* className;  // the class in whose functions its instructions are counted
    ParameterId enable;     // its switch; kNoSwitch if it is always on
    uint32_t delayFrames;   // frames from input to output while it is on
    // Frames that it collects before it returns any; 0 if it collects none.
    uint32_t blockFrames = 0;
};

inline constexpr StageRow kStages[] = {
    // The look-ahead of its own limiters.
    {"playback gain", "PlaybackGain", PARAM_PLAYBACKGAIN_ENABLE, 255},
    // Half the length of its symmetric filter.
    {"equalizer", "FIREqualizer", PARAM_EQUALIZER_ENABLE, 256},
    // Half the length of its kernels, which is the delay of the band above 1800 Hz. The lower bands
    // are 0.2 and 2.85 ms later; these offsets are the effect.
    {"enhancer", "OrvaneSound", PARAM_ENHANCER_ENABLE, 127, 770},
    // The look-ahead of the output limiters.
    {"output", "Limiter", kNoSwitch, 255},
};

// The number of stages that have a switch.
inline constexpr size_t kSwitchCount = [] {
    size_t count = 0;
    for (const StageRow& stage : kStages) count += stage.enable != kNoSwitch ? 1 : 0;
    return count;
}();
// The switches of these stages, in the chain's order.
inline constexpr auto kStageSwitches = [] {
    std::array<ParameterId, kSwitchCount> switches{};
    size_t n = 0;
    for (const StageRow& stage : kStages)
        if (stage.enable != kNoSwitch) switches[n++] = stage.enable;
    return switches;
}();
