// Draws frequency responses as PNG files: that of the linear part of the chain, and those of the
// equalizer's bands, each alone.
#pragma once
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "client/tone.h"
#include "render/pictures/analysis.h"
#include "render/pictures/gnuplot.h"

struct ResponseInput {
    std::string settings;          // one line that names the settings
    std::vector<TonePoint> asked;  // the wanted curve; empty if none is drawn
    double rateHz = 0;
    int channels = 0;
    bool enhances = false;  // the enhancer is on

    // Each processes samples of `channels` channels with a new instance at rateHz. The playback
    // gain is off, the output gain is 1, and the gate has its default. With the enhancer on, its
    // high band is aligned with the input.
    SampleChain equalizerOnly, enhancerOnly, both;
};

// Throws Failure.
void DrawResponse(const ResponseInput& input, const PngFile& png);

struct BandsInput {
    double rateHz = 0;
    // Returns a chain that processes samples of one channel with a new instance at rateHz. Its
    // equalizer has these levels, and everything else is off.
    std::function<SampleChain(const Settings::Levels&)> chainWith;
};

// Throws Failure.
void DrawBands(const BandsInput& input, const PngFile& png);
