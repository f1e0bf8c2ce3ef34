// Settings as people write and read them, by the keys of the parameter table.
//
//   # a comment
//   enhancer = on
//   process = 1.2
//   eq = -0.1,0.5,0.5,0,0,-0.05,-0.15,0,0.05,0.05
//
// Values are in the table's units, switches on or off (or 1, 0), band levels ten numbers or
// BAND=LEVEL, parted by commas.
#pragma once
#include <string>
#include <string_view>

#include "client/settings.h"

// Shortest text of a value, at most six significant digits.
std::string NumberText(double value);

// "0 to 127".
std::string RangeText(const Parameter& parameter);

// What a new instance has, with the value that comes nearest if it can't be sent: "0.9999, sent as
// 1".
std::string DefaultText(const Parameter& parameter);

// Null for what isn't a key of the table.
const Parameter* FindByKey(std::string_view key);

// Sets one value. Returns what is wrong with it, without a line end ("ratio 11 is outside 0 to
// 10"), and "" if nothing is; then only `settings` has changed.
std::string SetFromText(std::string_view key, std::string_view value, Settings* settings);

// Sets what the lines of a settings file say, each key at most once. Returns what is wrong with the
// first wrong line, behind its number ("3: no setting is called rato"), or "".
std::string ReadSettings(std::string_view text, Settings* settings);

// What was set, as the lines of a settings file, which read back give the same settings.
std::string SettingsText(const Settings& settings);

// What acts, in one line for reports and pictures.
std::string Describe(const Settings& settings);
