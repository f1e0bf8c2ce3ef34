// Solves for the equalizer's levels that give a curve, and prints them.
#pragma once
#include <string>
#include <vector>

#include "render/command.h"

class ToneCommand final : public Command {
public:
    explicit ToneCommand(Options& program);
    void Run() override;

private:
    std::vector<std::string> items;  // of the curve
    double rateHz = 44100;
    bool records = false;
};
