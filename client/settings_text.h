// Settings as people write and read them, by the keys of the parameter table.
//
//   # a comment
//   enhancer = on
//   process = 1.2
//   eq = -0.1,0.5,0.5,0,0,-0.05,-0.15,0,0.05,0.05
//
// Values are in the table's units, switches on or off (or 1, 0), band levels ten numbers or
// BAND=LEVEL, parted by commas. A gain can also be given in decibels: -3dB.
#pragma once
#include <string>
#include <string_view>
#include <vector>

#include "client/settings.h"
#include "client/tone.h"

// Shortest text of a value, at most six significant digits.
std::string NumberText(double value);

// "0.5 (-6.0 dB)" for a row that is a gain, else the number.
std::string ValueText(const Parameter& parameter, double value);

// "+6.0", and never "-0.0".
std::string DecibelText(double decibels);

// "0 to 127".
std::string RangeText(const Parameter& parameter);

// What a new instance has, with the value that comes nearest if it can't be sent: "0.9999, sent as
// 1".
std::string DefaultText(const Parameter& parameter);

// What a listener sets with it, behind the listener's words for it; of a value also its range, its
// unit and what a new instance has: "Treble: gain of ... (0 to 4, factor; 1)".
std::string HelpText(const Parameter& parameter);

// Null for what isn't a key of the table.
const Parameter* FindByKey(std::string_view key);

// Sets one value. Returns what is wrong with it, without a line end ("ratio 11 is outside 0 to
// 10"), and "" if nothing is; then only `settings` has changed.
std::string SetFromText(std::string_view key, std::string_view value, Settings* settings);

// Sets what the lines of a settings file say, each key at most once. Returns what is wrong with the
// first wrong line, behind its number ("3: no setting is called rato"), or "". A text that is
// longer than kMostSettingsBytes is refused.
std::string ReadSettings(std::string_view text, Settings* settings);
constexpr size_t kMostSettingsBytes = 1000000;

// What was set, as the lines of a settings file, which read back give the same settings.
std::string SettingsText(const Settings& settings);

// What acts, in one line for reports and pictures.
std::string Describe(const Settings& settings);

// A curve as people write it: "60:6,200:0,8000:3", hertz and decibels. Returns what is wrong with
// it, or ""; then *points holds it in ascending order. Frequencies 10 to 24000, -60 to 20 dB.
std::string ReadTone(std::string_view text, std::vector<TonePoint>* points);

// How near a fit comes: "within 0.3 dB (rms), furthest off at 60 Hz: -0.8 dB", and whether ten
// bands can give such a curve at all.
std::string FitText(const ToneFit& fit);
