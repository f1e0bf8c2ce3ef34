// The plug-in's ports, in the order of their numbers. Hosts keep them by symbol.
#pragma once
#include <cstdint>

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
