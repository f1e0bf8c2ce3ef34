// The plug-in's ports, in the order of their numbers. Hosts keep them by symbol.
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
    kFirstControl,  // those of kControls
    kLatency = kFirstControl + kControls.size(),
    kSourceLevel,
    kResultLevel,
    kGain,
    kLimiting,
    kPortCount
};

// Grows by 2 with every control that is added, as hosts expect of a release with more ports.
constexpr size_t kControlsOfVersion2 = 20;
constexpr size_t kMinorVersion = 2 + 2 * (kControls.size() - kControlsOfVersion2);

// Letters, digits and underscores.
inline std::string Symbol(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c == '-' || c == ' '; }, '_');
    return text;
}
// Of a control's port: "output_gain", "eq_3".
inline std::string SymbolOf(const Control& control) {
    return Symbol(KeyOf(control));
}
