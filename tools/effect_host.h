// The framework's side of the effect interface: loads the library, checks its record, and creates,
// configures, commands and runs instances as the framework does. Knows the exported record and
// nothing else of the library.
//
// Everything throws Failure when the library says no. One thread.
#pragma once
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/effect_api.h"

// One set-parameter command: one to four values.
struct ParameterWrite {
    int32_t id;
    std::vector<int32_t> values;
};

class EffectLibrary {
public:
    // Without showsLog, what the library logs while it is called does not reach standard error.
    EffectLibrary(const std::string& path, bool showsLog);
    ~EffectLibrary();
    EffectLibrary(const EffectLibrary&) = delete;
    EffectLibrary& operator=(const EffectLibrary&) = delete;

    const audio_effect_library_t& Record() const { return *record; }
    bool ShowsLog() const { return showLog; }

    uint32_t EffectCount() const;
    // Of the library's first effect.
    effect_descriptor_t Descriptor() const;

private:
    void* handle;
    const audio_effect_library_t* record = nullptr;
    bool showLog;
};

// One instance of the library's first effect, which must outlive it.
class EffectInstance {
public:
    // Created and configured, not yet enabled. rateHz: 32000 to 48000; channels: 1 or 2.
    EffectInstance(const EffectLibrary& effectLibrary, uint32_t rateHz, uint32_t channels);
    ~EffectInstance();
    EffectInstance(const EffectInstance&) = delete;
    EffectInstance& operator=(const EffectInstance&) = delete;

    void Set(const ParameterWrite& write);
    // No value if the library does not answer this identifier.
    std::optional<int32_t> Get(int32_t id) const;
    void Enable();

    // One buffer of `frames` interleaved frames, from `in` to `out`; `in` is only read.
    void Process(int16_t* in, int16_t* out, uint32_t frames);

private:
    // Sends a command whose reply is one status word.
    void Command(uint32_t code, void* data, uint32_t size, const char* what);

    const EffectLibrary& library;
    effect_handle_t handle = nullptr;
};
