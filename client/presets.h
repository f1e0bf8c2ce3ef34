// Named settings. Thread: any; constant.
#pragma once
#include <span>
#include <string_view>

#include "client/settings.h"

struct PresetValue {
    ParameterId id = kNoSwitch;  // kNoSwitch: no value
    double value = 0;            // in the table's units, as the wire carries it
};

struct Preset {
    const char* name;
    const char* description;
    PresetValue values[8] = {};
    Settings::Levels levels{};  // of the equalizer, which is on if one isn't 0
};

// Returns all presets. The first one is the default.
std::span<const Preset> Presets();

// Returns null if no preset has the name.
const Preset* FindPreset(std::string_view name);

Settings SettingsOf(const Preset& preset);
