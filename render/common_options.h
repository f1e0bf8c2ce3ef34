// What the commands that run the library take.
#pragma once
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "render/chain_run.h"
#include "render/effect_library.h"
#include "render/options.h"
#include "render/settings_options.h"

// Where this program lies.
std::filesystem::path ProgramFolder();

struct LibraryOptions {
    std::string path;
    bool log = false;

    void AddTo(Options& options);
    // The file that was named, or else the one beside the program, or where an installation puts
    // it. Failure if there is none.
    std::string Find() const;
    EffectLibrary Open() const { return EffectLibrary(Find(), log); }
};

struct CommonOptions {
    SettingsOptions settings;
    uint32_t bufferFrames = 1024;
    bool overwrite = false, quiet = false;
    LibraryOptions library;

    void AddTo(Options& options);
    // Puts what was given into the job. UsageError for what can't be read.
    void Fill(RenderJob* job) const;
};

// What commands take that write audio.
struct RenderOptions {
    CommonOptions common;
    bool noDither = false, json = false, skipExisting = false;
    std::string match;  // a number, or "true" for the source's
    std::optional<std::string> ceiling;

    // What needs no more than a flag goes straight into the job, which must outlive the options.
    void AddTo(Options& options, RenderJob* job);
    void Fill(RenderJob* job) const;
    // Returns whether --skip-existing was given and all outputs are there; then says so.
    bool Skips(const std::vector<std::string>& outputs) const;
    // Saves the settings where that was asked for, and prints report and warnings.
    void Finish(Report* report) const;
};

// --list-presets, which ends the program.
void AddPresetListTo(Options& options);

// --cold-start, of commands that play a piece.
void AddColdStartTo(Options& options, bool* coldStart);
