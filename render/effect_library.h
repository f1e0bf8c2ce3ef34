// The effect library that the renderer runs, loaded from a file, with its log shown or not.
//
// Throws Failure when the library can't be used or says no. One thread.
#pragma once
#include <cstdint>
#include <string>

#include "client/library_file.h"
#include "platform/effect_api.h"

// Throws "the library refuses to ..." for another status than 0.
void Check(int32_t status, const std::string& what);

class EffectLibrary {
public:
    // Without showsLog, what the library logs while it is called does not reach standard error.
    EffectLibrary(const std::string& path, bool showsLog);

    const audio_effect_library_t& Record() const { return *file.Record(); }
    bool ShowsLog() const { return showLog; }

    uint32_t EffectCount() const;
    // Of the library's first effect.
    effect_descriptor_t Descriptor() const;

private:
    LibraryFile file;
    bool showLog;
};
