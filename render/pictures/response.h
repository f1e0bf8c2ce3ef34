// Draws frequency responses as PNG files: that of the linear part of the chain, and those of the
// equalizer's bands, each alone.
#pragma once
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "client/tone.h"

struct ResponseInput {
    std::string settings;          // one line that names the settings
    std::vector<TonePoint> asked;  // the wanted curve; empty if none is drawn
    double rateHz = 0;
    int channels = 0;
    bool enhances = false;  // the enhancer is on

    // Each runs interleaved 16-bit samples (`channels` channels) through a new instance at rateHz.
    // The playback gain is off, the output gain is 1, and the gate has its default. The result is
    // as long as the input and aligned with it. With the enhancer on, its high band is aligned.
    std::function<std::vector<int16_t>(const std::vector<int16_t>&)> equalizerOnly, enhancerOnly,
        both;
};

// Creates or overwrites pngPath. If that fails, returns false, puts a line into *error and leaves
// an incomplete file. So pngPath should be a temporary name.
bool DrawResponse(const ResponseInput& input, const std::string& pngPath, std::string* error);

struct BandsInput {
    double rateHz = 0;
    // Runs 16-bit samples of one channel through a new instance at rateHz. Its equalizer has these
    // levels, and everything else is off. The result is as long as the input and aligned with it.
    std::function<std::vector<int16_t>(const Settings::Levels&, const std::vector<int16_t>&)> chain;
};

// Creates or overwrites pngPath. If that fails, returns false, puts a line into *error and leaves
// an incomplete file. So pngPath should be a temporary name.
bool DrawBands(const BandsInput& input, const std::string& pngPath, std::string* error);
