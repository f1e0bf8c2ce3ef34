// Draws the frequency response of equalizer and enhancer.
#pragma once
#include <cstdint>
#include <string>

#include "render/command.h"
#include "render/common_options.h"

class ResponseCommand final : public Command {
public:
    explicit ResponseCommand(Options& program);
    void Run() override;

private:
    CommonOptions common;
    std::string picture;
    uint32_t rateHz = 44100;
    uint32_t channels = 2;
    bool bands = false;

    void DrawBandsAlone() const;
};
