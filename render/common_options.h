// What the commands that run the library take.
#pragma once
#include <CLI/CLI.hpp>
#include <cstdint>
#include <string>

#include "render/effect_library.h"
#include "render/settings_options.h"

struct LibraryOptions {
    std::string path;
    bool log = false;

    void AddTo(CLI::App& command);
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

    void AddTo(CLI::App& command);
};

// --list-presets, which ends the program.
void AddPresetListTo(CLI::App& command);
