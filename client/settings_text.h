// Settings as text that people write and read. Each setting has its key of the parameter table.
//
//   # a comment
//   enhancer = on
//   process = 1.2
//   eq = -0.1,0.5,0.5,0,0,-0.05,-0.15,0,0.05,0.05
//
// Values are in the table's units. A switch is "on" or "off" (or 1 or 0). Band levels are either
// ten numbers or any number of BAND=LEVEL, separated by commas. A linear gain can also be given in
// decibels: "-3dB".
//
// Every function allocates. Thread: any but the audio thread.
#pragma once
#include <string>
#include <string_view>
#include <vector>

#include "client/settings.h"
#include "client/settings_reader.h"
#include "client/tone.h"

// Returns the shortest text of a value, with at most six significant digits (printf's %g).
std::string NumberText(double value);

// Returns "0.5 (-6.0 dB)" for a row that is a linear gain. Returns the number alone for other rows,
// and for gains of 1 and of 0 or less.
std::string ValueText(const Parameter& parameter, double value);

// Returns a sign and one decimal place: "+6.0". Values that round to 0 give "+0.0", never "-0.0".
std::string DecibelText(double decibels);

// Returns the row's range: "0 to 127".
std::string RangeText(const Parameter& parameter);

// Returns the value that a new instance has. If it can't be sent, the nearest value that can is
// added: "0.9999, sent as 1".
std::string DefaultText(const Parameter& parameter);

// Returns a line of help: the listener's words for the parameter, then what it does. For a value,
// range, unit and default follow: "Treble: gain of ... (0 to 4, factor; 1)".
std::string HelpText(const Parameter& parameter);

// The same as the functions in client/settings_reader.h, for callers that want a string. They
// return what is wrong, or "".
std::string SetFromText(std::string_view key, std::string_view value, Settings* settings);
std::string ReadSettings(std::string_view text, Settings* settings);

// Returns everything that was set, as the lines of a settings file. Reading them gives the same
// settings again.
std::string SettingsText(const Settings& settings);

// Returns one line for reports and pictures that names what is on, with its values.
std::string Describe(const Settings& settings);

// Reads a curve of points HZ:DB, separated by commas: "60:6,200:0,8000:3". Frequencies are 10 to
// 24000 Hz, each at most once, and gains are -60 to 20 dB. Returns "" and stores the points in
// ascending order of frequency. Otherwise returns what is wrong; *points then holds no usable
// curve.
std::string ReadTone(std::string_view text, std::vector<TonePoint>* points);

// Returns how near a fit comes to its curve: "within 0.3 dB (rms), furthest off at 60 Hz: -0.8 dB".
// For ToneFocus::kMiddle, "; 0.2 dB from 60 Hz to 8 kHz" is added within the parentheses.
// If the fit is not near (ToneFit::IsNear), the text says that ten bands can't give such a curve.
std::string FitText(const ToneFit& fit);
