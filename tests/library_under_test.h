// Gives access to the library under test through its exported record, as the framework and
// applications see it.
#pragma once
#include <dlfcn.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "client/instance.h"
#include "host/identity.h"
#include "later_loader.h"
#include "signals.h"
#include "table/parameters.h"

// Returns the path of the shared library under test: the one that the environment names in
// ORVANE_LIBRARY, or else the build's.
inline const char* LibraryPath() {
    const char* const named = std::getenv("ORVANE_LIBRARY");
    return named != nullptr ? named : ORVANE_LIBRARY_PATH;
}

inline void* LibraryHandle() {
    static void* const library = dlopen(LibraryPath(), RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) std::abort();
    return library;
}

// Returns the library's record. A library of interface 3.0 has no query functions; they are null.
inline const audio_effect_library_t& LoadedLibrary() {
    static const LaterLibrary later(LibraryPath());
    if (later.ForTests() != nullptr) return *later.ForTests();
    void* const symbol = dlsym(LibraryHandle(), AUDIO_EFFECT_LIBRARY_INFO_SYM_AS_STR);
    if (symbol == nullptr) std::abort();
    const auto& record = *static_cast<const audio_effect_library_t*>(symbol);
    if (record.version >> 16 != EFFECT_LIBRARY_API_VERSION >> 16) std::abort();
    return record;
}

// Returns noise, uniform in [-amplitude, amplitude].
inline std::vector<int16_t> NoiseSamples(size_t count, int amplitude, unsigned seed = 1) {
    return Noise<int16_t>(count, amplitude + 1, seed);
}

// An instance of the library under test, or of another library.
class Instance : public ClientInstance {
public:
    explicit Instance(const audio_effect_library_t& library = LoadedLibrary())
        : ClientInstance(library) {
        if (handle == nullptr) std::abort();
    }
    explicit Instance(effect_handle_t created) : ClientInstance(LoadedLibrary(), created) {}

    // Switches every processor on and sets every value to one that is not its default.
    void SwitchEverythingOn() {
        for (int32_t band = 0; band < kBandCount; ++band)
            Set(PARAM_EQUALIZER_BANDLEVEL, {band, 15 * band - 60});
        for (const Parameter& parameter : kParameters)
            if (*parameter.key != '\0' && parameter.kind != ParameterKind::kBandValue)
                Set(parameter.id, {parameter.OnWire(parameter.trial)});
    }
    // Sets every level, gain and factor, including each band's. `value` is in hundredths, as it is
    // sent.
    void SetEveryValue(int32_t value) {
        for (int32_t band = 0; band < 10; ++band) Set(PARAM_EQUALIZER_BANDLEVEL, {band, value});
        for (const Parameter& parameter : kParameters)
            if (parameter.kind == ParameterKind::kValue) Set(parameter.id, {value});
    }
    // Configures the instance, switches everything on and enables it.
    void Start(uint32_t rate, uint32_t channels) {
        Configure(rate, channels);
        SwitchEverythingOn();
        Enable();
    }
    // Processes all of `in` (interleaved) in buffers of `frames` frames; the last one may be
    // shorter. Returns the output.
    std::vector<int16_t> Run(const std::vector<int16_t>& in, uint32_t frames, uint32_t channels) {
        std::vector<int16_t> out(in.size());
        for (size_t at = 0; at < in.size(); at += size_t{frames} * channels) {
            const size_t left = (in.size() - at) / channels;
            const uint32_t now = left < frames ? static_cast<uint32_t>(left) : frames;
            if (Process(in.data() + at, out.data() + at, now) != 0) std::abort();
        }
        return out;
    }
};
