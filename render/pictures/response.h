// Draws the frequency response of the linear part of the chain as one PNG file.
#pragma once
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

struct ResponseInput {
    std::string settings;  // one line that names the settings
    double rateHz = 0;
    int channels = 0;

    // Each runs interleaved 16-bit samples (`channels` channels) through a fresh instance at rateHz
    // with the playback gain off, the output gain at 1 and the gate at its default; the result is
    // as long as the input and aligned with it (with the enhancer on, its high band is).
    std::function<std::vector<int16_t>(const std::vector<int16_t>&)> equalizerOnly, enhancerOnly,
        both;
};

// Creates or overwrites pngPath. Returns false if it cannot, with a line in *error, and leaves an
// incomplete file: give it a temporary name.
bool DrawResponse(const ResponseInput& input, const std::string& pngPath, std::string* error);
