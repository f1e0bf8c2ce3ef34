// What a listener has set on the desktop, kept in a file between sessions. It is a profile for each
// output, the settings for outputs without one, and the applications that are left out.
//
// The file is $XDG_CONFIG_HOME/orvane/desktop.json (~/.config without that variable):
//
//   { "last": ["enhancer = on", "process = 1.2"],
//     "profiles": { "alsa_output.usb-…": { "on": false, "settings": [...] } },
//     "left_out": ["Ardour"] }
//
// Settings are the lines of a settings file. The older form, one settings file for all outputs
// called
// ~/.config/orvane/desktop, is read if this file doesn't exist. Thread: any, one at a time.
#pragma once
#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "client/settings.h"

struct Profile {
    bool isOn = true;  // false: players go directly to this output
    Settings settings;
};

class Profiles {
public:
    // Reads the file. What it can't read is left out and described in Warnings().
    explicit Profiles(std::filesystem::path where = DefaultFolder());

    const std::vector<std::string>& Warnings() const { return warnings; }

    // Returns the profile of an output by its `node.name`. An output without a profile is on, with
    // the settings that were set last.
    Profile Of(const std::string& output) const;
    bool Has(const std::string& output) const { return profiles.contains(output); }
    const std::map<std::string, Profile>& All() const { return profiles; }
    const std::set<std::string>& LeftOut() const { return leftOut; }

    // Each returns what kept the file from being written, "" if nothing did. The file is replaced
    // as a whole, so that a full disk leaves the older one. The change holds in memory either way.
    // output: "" changes nothing but the settings for outputs without a profile.
    std::string Set(const std::string& output, const Profile& profile);
    std::string LeaveOut(const std::string& application, bool isOut);

    static std::filesystem::path DefaultFolder();

private:
    void Read(const std::string& text);
    std::string Write() const;

    std::filesystem::path folder;
    Settings last;
    std::map<std::string, Profile> profiles;
    std::set<std::string> leftOut;
    std::vector<std::string> warnings;
};

// Returns the settings that `lines` stand for. Lines that this version can't read are left out;
// each adds what is wrong with it to *warnings.
Settings SettingsOfLines(const std::vector<std::string>& lines, std::vector<std::string>* warnings);
std::vector<std::string> LinesOf(const Settings& settings);
