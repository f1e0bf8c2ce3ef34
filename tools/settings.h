// What a listener can set, in the units of the parameter table, and the named presets.
#pragma once
#include <array>
#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "tools/effect_host.h"
#include "unit/parameters.h"

// Shortest text of a value, at most six significant digits.
std::string NumberText(double value);

// "0 to 127 factor".
std::string RangeText(const Parameter& parameter);

// Settings of a chain. New ones are those of a new instance: every processor off.
class Settings {
public:
    // Rounds to what the wire carries (hundredths, mostly). UsageError outside the table's range.
    void Set(ParameterId id, double value);
    // Back to what a new instance has.
    void Unset(ParameterId id) { values.erase(id); }
    // band: 0 (lowest) to 9, else UsageError.
    void SetBand(size_t band, double level);

    double Get(ParameterId id) const;
    const std::array<double, kBandCount>& Levels() const { return levels; }
    bool PlaybackGainOn() const { return Get(PARAM_PLAYBACKGAIN_ENABLE) != 0; }
    bool EnhancerOn() const { return Get(PARAM_ENHANCER_ENABLE) != 0; }
    // Without its switch set, the equalizer runs when a band isn't flat.
    bool EqualizerOn() const;

    // The commands that bring a new instance to these settings, switches last.
    std::vector<ParameterWrite> Writes() const;

    // One line for reports and pictures.
    std::string Describe() const;

private:
    std::map<ParameterId, double> values;  // what was set; the rest is the table's default
    std::array<double, kBandCount> levels{};
};

struct Preset {
    const char* name;
    const char* description;
    Settings settings;
};

// The first is what a listener gets who asks for nothing.
const std::vector<Preset>& Presets();
// UsageError for a name that isn't there.
const Preset& FindPreset(const std::string& name);
