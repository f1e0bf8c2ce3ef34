// Draws an audio file before and after the chain.
#pragma once
#include "render/command.h"
#include "render/common_options.h"
#include "render/render_command.h"

class PictureCommand final : public Command {
public:
    explicit PictureCommand(Options& program);
    void Run() override;

private:
    CommonOptions common;
    RenderJob job;
    bool noDither = false;
};
