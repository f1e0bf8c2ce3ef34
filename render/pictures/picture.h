// Draws what the chain does to a piece of music as one PNG file.
#pragma once
#include <string>
#include <vector>

#include "client/tone.h"
#include "render/audio/stream_meter.h"
#include "render/pictures/analysis.h"
#include "render/pictures/gnuplot.h"

struct PictureInput {
    std::string title;             // file name or music title
    std::string settings;          // one line that names the settings
    std::vector<TonePoint> asked;  // the wanted tone curve plus the output gain; empty for none
    double seconds = 0;
    // Measured with Metering::kOverTime. Both begin at the same moment of the piece.
    Measured before, after;

    double rateHz = 0;
    int channels = 0;
    // Processes samples of `channels` channels at rateHz with a new instance, which has these
    // settings but no playback gain. It is called several times.
    SampleChain chainWithoutPlaybackGain;
    bool enhances = false;  // the enhancer is on
};

// Throws Failure.
void DrawPicture(const PictureInput& input, const PngFile& png);
