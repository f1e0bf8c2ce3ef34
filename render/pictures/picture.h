// Draws what the chain does to a piece of music as one PNG file.
#pragma once
#include <string>
#include <vector>

#include "client/tone.h"
#include "render/audio/stream_meter.h"
#include "render/pictures/analysis.h"

struct PictureInput {
    std::string title;             // file name or music title
    std::string settings;          // one line that names the settings
    std::vector<TonePoint> asked;  // the tone that was asked for, at the output's level
    double seconds = 0;
    Measured before, after;  // over time, from the same moment on

    // Runs interleaved samples of `channels` channels at rateHz through a new instance. It has
    // these settings, except that the playback gain is off. May be called often.
    double rateHz = 0;
    int channels = 0;
    SampleChain chainWithoutPlaybackGain;
    bool enhances = false;  // the enhancer is on
};

// Creates or overwrites pngPath. If that fails, returns false, puts a line into *error and leaves
// an incomplete file. So pngPath should be a temporary name.
bool DrawPicture(const PictureInput& input, const std::string& pngPath, std::string* error);
