// Settings by the name of a preset or from a settings file. Not on an audio thread: they read files
// and allocate.
#pragma once
#include <string>

#include "client/settings.h"

// Sets what the file says. Returns what is wrong, "orvane.txt:3: no setting is called rato" or that
// it can't be read or has more than 64 KiB; or "".
std::string ReadSettingsFile(const std::string& path, Settings* settings);

// The settings that `name` stands for: a preset's, else those of the file of that path. Returns
// what is wrong, or "".
std::string SettingsNamed(const std::string& name, Settings* settings);
