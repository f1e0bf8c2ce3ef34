// The plug-in's ports, in the order of their numbers. Hosts store values by symbol, so symbols must
// never change.
#pragma once
#include <algorithm>
#include <cstdint>
#include <string>

#include "client/controls.h"

constexpr char kPluginUri[] = "urn:quenthra:orvane";

enum Port : uint32_t {
    kLeftIn,
    kRightIn,
    kLeftOut,
    kRightOut,
    kEnabled,
    kLowLatency,
    kFirstControl,  // the first of the ports for kControls
    kLatency = kFirstControl + kControls.size(),
    kSourceLevel,
    kResultLevel,
    kGain,
    kLimiting,
    kPortCount
};

// The minor version grows by 2 with every control that is added. Hosts expect an even version of
// every release, and a higher one if ports were added.
constexpr size_t kControlsOfVersion2 = 20;
constexpr size_t kMinorVersion = 2 + 2 * (kControls.size() - kControlsOfVersion2);

// Replaces dashes and blanks by underscores, because LV2 allows only letters, digits and
// underscores in a symbol.
inline std::string Symbol(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c == '-' || c == ' '; }, '_');
    return text;
}
// Returns the symbol of a control's port: "output_gain", "eq_3".
inline std::string SymbolOf(const Control& control) {
    return Symbol(KeyOf(control));
}
