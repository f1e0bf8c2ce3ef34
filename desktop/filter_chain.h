// What PipeWire's filter-chain is told: a client of the sound server, never a part of it.
#pragma once
#include <string>

#include "client/settings.h"

// The client's whole configuration, from its first block on at these settings. Node "orvane" takes
// what is played, node "orvane.out" gives it to an output.
std::string ConfigurationText(const Settings& settings);

// The property by which a running "orvane.out" takes all settings.
std::string PropertyText(const Settings& settings);
