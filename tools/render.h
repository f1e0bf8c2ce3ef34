// Audio through the chain from file to file, and onto pictures.
#pragma once
#include <cstdint>
#include <string>

#include "client/settings.h"
#include "tools/effect_library.h"
#include "tools/report.h"

struct RenderJob {
    std::string input;    // "-" is standard input
    std::string output;   // "-" is standard output
    std::string picture;  // PNG file to draw besides, "" for none
    std::string preset;
    Settings settings;
    uint32_t bufferFrames = 1024;
    bool overwrite = false;
    bool keepDelay = false;
    bool coldStart = false;  // as the framework starts, its fade-in included
    bool dither = true;
    bool strictRate = false;
    bool showProgress = false;
    bool measure = true;  // loudness and true peak, for the report
};

// Throws Failure or UsageError; then no output exists that did not exist before.
Report Render(const RenderJob& job, const EffectLibrary& library);

// Draws job.input before and after the chain onto job.picture; job.output is not used.
void DrawPictureOf(const RenderJob& job, const EffectLibrary& library);

struct ResponseJob {
    std::string picture;
    Settings settings;
    uint32_t rateHz = 44100;
    uint32_t channels = 2;
    uint32_t bufferFrames = 1024;
    bool overwrite = false;
};

void DrawResponseOf(const ResponseJob& job, const EffectLibrary& library);
