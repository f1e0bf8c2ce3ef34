// Named settings. They are constant. Thread: any; nothing allocates.
#pragma once
#include <span>
#include <string_view>

#include "client/settings.h"

struct PresetValue {
    ParameterId id = kNoSwitch;  // kNoSwitch: no value
    double value = 0;            // in the table's units; a multiple of the wire's step
};

struct Preset {
    const char* name;
    const char* purpose;      // what it is for, in a few words
    const char* description;  // what it does to the sound, for listeners
    PresetValue values[8] = {};
    Settings::Levels levels{};  // of the equalizer's bands; the equalizer is on if one isn't 0
};

// Returns all presets. The first one is the default.
std::span<const Preset> Presets();

// Returns null if no preset has the name.
const Preset* FindPreset(std::string_view name);

// Returns the preset's settings. Values that the preset doesn't name are unset.
Settings SettingsOf(const Preset& preset);
