// Makes the texts that configure PipeWire's filter-chain. The filter-chain runs as a client of the
// sound server, never inside it. Both functions allocate.
#pragma once
#include <string>

#include "client/settings.h"

// Returns the client's whole configuration file. The settings hold from the first block on. The
// node "orvane" takes what is played, and the node "orvane.out" passes it to an output.
std::string ConfigurationText(const Settings& settings);

// Returns the property that gives all settings to a running "orvane.out".
std::string PropertyText(const Settings& settings);
