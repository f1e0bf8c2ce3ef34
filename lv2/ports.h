// The plug-in's ports, in the order of their numbers. Hosts keep them by symbol.
#pragma once
#include <algorithm>
#include <cstdint>
#include <string>

#include "live/controls.h"

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
