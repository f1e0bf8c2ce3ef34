// The settings on the command line: --preset, one option for each row of the parameter table,
// --save.
#pragma once
#include <CLI/CLI.hpp>
#include <string>
#include <utility>
#include <vector>

#include "client/settings.h"

class SettingsOptions {
public:
    SettingsOptions();
    void AddTo(CLI::App& command);

    // A preset's name, or the settings file in its place.
    const std::string& PresetName() const { return preset; }
    // The preset, overridden by what was given. UsageError for what can't be read or is out of
    // range.
    Settings Resolve() const;
    // A line for each option given that does nothing.
    std::vector<std::string> Idle() const;
    // UsageError or Failure if the settings file that was asked for can't be written, or is one of
    // the others.
    void CheckSave(const std::vector<std::string>& others, bool overwrite) const;
    // Writes it, if one was. Throws Failure.
    void Save(bool overwrite) const;

private:
    std::string preset, saveTo;
    std::vector<std::pair<const Parameter*, std::string>> given;  // as text, in order
};

// The presets, a description and the settings for each.
std::string PresetList();
