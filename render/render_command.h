// Audio through the chain from file to file.
#pragma once
#include <cstdint>
#include <optional>
#include <string>

#include "client/settings.h"
#include "render/command.h"
#include "render/common_options.h"
#include "render/effect_library.h"
#include "render/report.h"

// To solve for the output gain, which is job.settings' business no more.
struct MatchWish {
    std::optional<double> lufs;  // none: as loud as the source
};

struct RenderJob {
    std::string input;    // "-" is standard input
    std::string output;   // "-" is standard output, "" is nowhere: for the picture alone
    std::string picture;  // PNG file to draw besides, "" for none
    std::string preset;
    Settings settings;
    ToneWish tone;
    std::optional<MatchWish> match;
    uint32_t bufferFrames = 1024;
    bool overwrite = false;
    bool keepDelay = false;
    bool coldStart = false;  // as the framework starts, its fade-in included
    bool dither = true;
    bool strictRate = false;
    bool onlyWhole = false;  // write nothing if the source is damaged
    bool showProgress = false;
    // For the report; a picture needs everything.
    Metering metering = Metering::kEverything;
};

// Throws Failure or UsageError; then no output exists that did not exist before. A picture that
// cannot be drawn costs the picture alone: the report says what is missing.
Report Render(const RenderJob& job, const EffectLibrary& library);

class RenderCommand final : public Command {
public:
    explicit RenderCommand(Options& program);
    void Run() override;

private:
    CommonOptions common;
    RenderJob job;
    bool noDither = false, json = false, skipExisting = false;
    std::string match;  // a number, or "true" for the source's
};
