// The options for settings: --preset, --save, and one option for each row of the parameter table.
#pragma once
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "client/settings.h"
#include "client/tone_file.h"
#include "render/options.h"

// A tone curve that was asked for. The band levels that give it depend on the stream's rate.
struct ToneWish {
    ToneCurve curve;       // without points if no curve was asked for
    bool headroom = true;  // false: the output gain must not change

    // Puts the band levels into `settings`. Returns how near they come to the curve, or nothing if
    // no curve was asked for.
    std::optional<ToneFit> Grant(double rateHz, Settings* settings) const;
};

class SettingsOptions {
public:
    SettingsOptions();
    void AddTo(Options& options);

    // A preset's name, or the path of a settings file.
    const std::string& PresetName() const { return preset; }
    // Returns the preset with the given options in place of its values. Throws UsageError for a
    // value that can't be read or is out of range.
    Settings Resolve() const;
    bool Gives(ParameterId id) const;
    // Returns whether --save was given.
    bool Saves() const { return !saveTo.empty(); }
    // Throws UsageError for a curve that can't be read.
    ToneWish Tone() const;
    // Returns a line for each given option that has no effect.
    std::vector<std::string> Idle() const;
    // Throws UsageError or Failure if the file of --save can't be written, or if it is one of the
    // other files.
    void CheckSave(const std::vector<std::string>& others, bool overwrite) const;
    // Writes the file of --save if it was given. Throws Failure.
    void Save(const Settings& settings, bool overwrite) const;

private:
    std::string preset, saveTo, tone;
    std::vector<std::pair<const Parameter*, std::string>> given;  // as text, in order
};

// Returns the list of presets with a description and the settings of each.
std::string PresetList();
