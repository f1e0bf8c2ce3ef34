// The settings on the command line: --preset and one option for each row of the parameter table.
#pragma once
#include <CLI/CLI.hpp>
#include <string>
#include <utility>
#include <vector>

#include "tools/settings.h"

class SettingsOptions {
public:
    void AddTo(CLI::App& command);

    std::string PresetName() const { return presetName; }
    // The preset, overridden by what was given. UsageError for what is out of range.
    Settings Resolve() const;
    // A line for each option given whose processor is off.
    std::vector<std::string> Idle() const;

private:
    std::string presetName = Presets().front().name;
    std::vector<std::pair<ParameterId, double>> given;
    std::vector<std::string> equalizer;
};

// The presets, a description and the settings for each.
std::string PresetList();
