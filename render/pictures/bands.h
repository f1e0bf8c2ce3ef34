// Draws what each band of the equalizer does alone as one PNG file.
#pragma once
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "client/tone.h"

struct BandsInput {
    double rateHz = 0;
    // Runs 16-bit samples of one channel through a new instance at rateHz. Its equalizer has these
    // levels, and everything else is off. The result is as long as the input and aligned with it.
    std::function<std::vector<int16_t>(const Settings::Levels&, const std::vector<int16_t>&)> chain;
};

// Creates or overwrites pngPath. If that fails, returns false, puts a line into *error and leaves
// an incomplete file. So pngPath should be a temporary name.
bool DrawBands(const BandsInput& input, const std::string& pngPath, std::string* error);
