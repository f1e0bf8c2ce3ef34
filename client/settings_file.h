// Reads settings from a settings file or by the name of a preset.
//
// The functions read files and allocate. Thread: any but the audio thread.
#pragma once
#include <string>

#include "client/settings.h"

// Reads a text file of at most 64 KiB. Returns "" and stores its content, or returns one line that
// says what is wrong. `what` names the kind of file in it: "a settings file".
std::string ReadSmallFile(const std::string& path, const char* what, std::string* text);

// Reads the settings file at `path` into `settings` (client/settings_text.h has the format).
// Returns "" if the whole file was read. Otherwise returns one line that says what is wrong, such
// as "orvane.txt:3: no setting is called rato". A file that can't be read or has more than 64 KiB
// is refused. Settings of the lines before a wrong line stay set.
std::string ReadSettingsFile(const std::string& path, Settings* settings);

// Sets `settings` to the preset called `name`. If no preset has that name, reads the settings file
// at the path `name`. Returns "", or one line that says what is wrong.
std::string SettingsNamed(const std::string& name, Settings* settings);
