// Draws what each band of the equalizer does alone as one PNG file.
#pragma once
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "client/tone.h"

struct BandsInput {
    double rateHz = 0;
    // Runs 16-bit samples of one channel through a fresh instance at rateHz whose equalizer has
    // these levels, everything else off; the result is as long as the input and aligned with it.
    std::function<std::vector<int16_t>(const Settings::Levels&, const std::vector<int16_t>&)> chain;
};

// Creates or overwrites pngPath. Returns false if it cannot, with a line in *error, and leaves an
// incomplete file: give it a temporary name.
bool DrawBands(const BandsInput& input, const std::string& pngPath, std::string* error);
