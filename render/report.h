// What a render did, for people and for programs.
#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "client/settings.h"
#include "render/audio/loudness.h"

struct Report {
    std::string input, output;
    std::string preset;
    Settings settings;
    uint32_t rateHz, channels;
    uint32_t chainRateHz, outputRateHz;
    uint64_t frames;  // of the input
    uint32_t bufferFrames;
    uint32_t delayFrames;  // of the chain, at its rate
    bool delayRemoved;
    bool dithered;
    uint64_t clippedIn;   // samples of the input beyond full scale
    uint64_t notNumbers;  // samples on the way in that were NaN or infinite, taken for silence
    uint64_t clippedOut;  // samples that resampling the result took beyond full scale
    Loudness before, after;
    double speed;  // seconds of audio per second
    std::vector<std::string> notes;
    std::string missing;  // what could not be made beside the audio, and why; "" if all was
};

// Several lines, each with its line end.
std::string TextOf(const Report& report);

// One JSON object. Levels that are minus infinity or were not measured are null.
std::string JsonOf(const Report& report);
