// Options of all commands that run the library.
#pragma once
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "render/chain_run.h"
#include "render/effect_library.h"
#include "render/options.h"
#include "render/settings_options.h"

// Returns the folder of this program.
std::filesystem::path ProgramFolder();

struct LibraryOptions {
    std::string path;
    bool log = false;

    void AddTo(Options& options);
    // Returns the path of the library: the given one, or that of the library beside the program, or
    // that of the installed one. Throws Failure if there is none.
    std::string Find() const;
    EffectLibrary Open() const { return EffectLibrary(Find(), log); }
};

struct CommonOptions {
    SettingsOptions settings;
    uint32_t bufferFrames = 1024;
    bool overwrite = false, quiet = false;
    LibraryOptions library;

    void AddTo(Options& options);
    // Puts the given options into the job. Throws UsageError for a value that can't be read.
    void Fill(RenderJob* job) const;
};

// Options of the commands that write audio.
struct RenderOptions {
    CommonOptions common;
    bool noDither = false, json = false, skipExisting = false;
    std::string match;  // a loudness in LUFS, or "true" for that of the source; "" if not given
    std::optional<std::string> ceiling;
    std::optional<bool> gainTags;
    std::optional<double> quality;

    // Plain flags are stored directly in the job, which must outlive the options.
    void AddTo(Options& options, RenderJob* job);
    void Fill(RenderJob* job) const;
    // Returns true, and says so, if --skip-existing was given and all outputs exist.
    bool Skips(const std::vector<std::string>& outputs) const;
    // Throws UsageError if --quality was given and no output is lossy.
    void CheckQuality(const std::vector<std::string>& outputs) const;
    // Saves the settings if that was asked for, and prints the report and the warnings.
    void Finish(Report* report) const;
};

// Adds --list-presets, which ends the program.
void AddPresetListTo(Options& options);

// Adds --cold-start, for commands that play a piece.
void AddColdStartTo(Options& options, bool* coldStart);
