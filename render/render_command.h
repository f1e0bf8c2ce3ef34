// Audio through the chain from file to file.
#pragma once
#include <cstdint>
#include <string>

#include "client/settings.h"
#include "render/command.h"
#include "render/common_options.h"
#include "render/effect_library.h"
#include "render/report.h"

struct RenderJob {
    std::string input;    // "-" is standard input
    std::string output;   // "-" is standard output
    std::string picture;  // PNG file to draw besides, "" for none
    std::string preset;
    Settings settings;
    uint32_t bufferFrames = 1024;
    bool overwrite = false;
    bool keepDelay = false;
    bool dither = true;
    bool strictRate = false;
    bool showProgress = false;
    bool measure = true;  // loudness and true peak, for the report
};

// Throws Failure or UsageError; then no output exists that did not exist before. A picture that
// cannot be drawn costs the picture alone: the report says what is missing.
Report Render(const RenderJob& job, const EffectLibrary& library);

class RenderCommand final : public Command {
public:
    explicit RenderCommand(CLI::App& program);
    void Run() override;

private:
    CommonOptions common;
    RenderJob job;
    bool noDither = false, json = false;
};
