// What the commands that run the library take.
#pragma once
#include <cstdint>
#include <filesystem>
#include <string>

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
};

// --list-presets, which ends the program.
void AddPresetListTo(Options& options);

// --cold-start, of commands that play a piece.
void AddColdStartTo(Options& options, bool* coldStart);
