// Audio through the chain from file to file.
#pragma once
#include <string>

#include "render/chain_run.h"
#include "render/command.h"
#include "render/common_options.h"
#include "render/effect_library.h"
#include "render/report.h"

// Throws Failure or UsageError; then no output exists that did not exist before. A picture that
// cannot be drawn costs the picture alone: the report says what is missing.
Report Render(const RenderJob& job, const EffectLibrary& library);

class RenderCommand final : public Command {
public:
    explicit RenderCommand(Options& program);
    void Run() override;

private:
    RenderOptions render;
    RenderJob job;
};
