// The effect library that the renderer runs. It is loaded from a file.
//
// Throws Failure if the library can't be used or refuses something. Thread: one at a time.
#pragma once
#include <cstdint>
#include <string>

#include "client/library_file.h"
#include "platform/effect_api.h"

// Throws "the library refuses to ..." if the status isn't 0.
void Check(int32_t status, const std::string& what);

class EffectLibrary {
public:
    // showsLog: false hides from standard error what the library logs while it is called.
    EffectLibrary(const std::string& path, bool showsLog);

    const audio_effect_library_t& Record() const { return *file.Record(); }
    bool ShowsLog() const { return showLog; }

    uint32_t EffectCount() const;
    // Returns the descriptor of the library's first effect.
    effect_descriptor_t Descriptor() const;

private:
    LibraryFile file;
    bool showLog;
};
