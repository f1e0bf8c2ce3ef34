// The settings on the command line: --preset, one option for each row of the parameter table,
// --save.
#pragma once
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "client/settings.h"
#include "client/tone.h"
#include "render/options.h"

// A tone that was asked for. What gives it depends on the rate of the stream.
struct ToneWish {
    std::vector<TonePoint> points;  // none: no wish
    bool headroom = true;           // false: the output gain is somebody else's

    // Puts the levels into `settings`. Returns how near they come, nothing without a wish.
    std::optional<ToneFit> Grant(double rateHz, Settings* settings) const;
};

class SettingsOptions {
public:
    SettingsOptions();
    void AddTo(Options& options);

    // A preset's name, or the settings file in its place.
    const std::string& PresetName() const { return preset; }
    // The preset, overridden by what was given. UsageError for what can't be read or is out of
    // range.
    Settings Resolve() const;
    bool Gives(ParameterId id) const;
    // Returns whether --save was given.
    bool Saves() const { return !saveTo.empty(); }
    // UsageError for one that can't be read.
    ToneWish Tone() const;
    // A line for each option given that does nothing.
    std::vector<std::string> Idle() const;
    // UsageError or Failure if the settings file that was asked for can't be written, or is one of
    // the others.
    void CheckSave(const std::vector<std::string>& others, bool overwrite) const;
    // Writes it, if one was. Throws Failure.
    void Save(const Settings& settings, bool overwrite) const;

private:
    std::string preset, saveTo, tone;
    std::vector<std::pair<const Parameter*, std::string>> given;  // as text, in order
};

// The presets, a description and the settings for each.
std::string PresetList();
