// Draws what the chain does to a piece of music as one PNG file.
#pragma once
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

struct PictureInput {
    std::string title;     // file name or music title
    std::string settings;  // one line that names the settings
    double rateHz = 0;
    int channels = 0;
    std::vector<float> before, after;  // interleaved, full scale 1.0, aligned with each other

    // Runs interleaved 16-bit samples through a fresh instance with these settings at rateHz, with
    // `channels` channels: aligned (delay removed) and as long as the input. May be called often.
    std::function<std::vector<int16_t>(const std::vector<int16_t>&)> chain;
    // The same with the playback gain switched off.
    std::function<std::vector<int16_t>(const std::vector<int16_t>&)> chainWithoutPlaybackGain;
};

// Creates or overwrites pngPath. Returns false if it cannot, with a line in *error, and leaves an
// incomplete file: give it a temporary name.
bool DrawPicture(const PictureInput& input, const std::string& pngPath, std::string* error);
