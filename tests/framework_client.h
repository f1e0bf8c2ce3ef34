// What the framework and an application do with the library, through its exported record alone.
#pragma once
#include <dlfcn.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <vector>

#include "host/identity.h"
#include "platform/effect_api.h"
#include "signals.h"
#include "unit/parameters.h"

// The shared library under test: the build's, or what ORVANE_LIBRARY names in the environment.
inline void* LibraryHandle() {
    static void* const library = [] {
        const char* const named = std::getenv("ORVANE_LIBRARY");
        return dlopen(named != nullptr ? named : ORVANE_LIBRARY_PATH, RTLD_NOW | RTLD_LOCAL);
    }();
    if (library == nullptr) std::abort();
    return library;
}

inline const audio_effect_library_t& LoadedLibrary() {
    void* const symbol = dlsym(LibraryHandle(), AUDIO_EFFECT_LIBRARY_INFO_SYM_AS_STR);
    if (symbol == nullptr) std::abort();
    return *static_cast<const audio_effect_library_t*>(symbol);
}

inline effect_config_t MakeConfig(uint32_t rate, uint32_t channels) {
    buffer_config_t side = {};
    side.samplingRate = rate;
    side.channels = channels == 1 ? AUDIO_CHANNEL_OUT_MONO : AUDIO_CHANNEL_OUT_STEREO;
    side.format = AUDIO_FORMAT_PCM_16_BIT;
    side.mask = EFFECT_CONFIG_SMP_RATE | EFFECT_CONFIG_CHANNELS | EFFECT_CONFIG_FORMAT |
                EFFECT_CONFIG_ACC_MODE;
    return {side, side};
}

// A set-parameter record: header, identifier, values.
inline std::vector<int32_t> SetRecord(int32_t id, std::initializer_list<int32_t> values) {
    std::vector<int32_t> record = {0, 4, static_cast<int32_t>(4 * values.size()), id};
    record.insert(record.end(), values);
    return record;
}

// Uniform in [-amplitude, amplitude], interleaved or not.
inline std::vector<int16_t> NoiseSamples(size_t count, int amplitude, unsigned seed = 1) {
    return Noise<int16_t>(count, amplitude + 1, seed);
}

// One instance. Replies are -1 where the library wrote none.
class Instance {
public:
    // library: another build's record, or the one linked in.
    explicit Instance(const audio_effect_library_t& library = LoadedLibrary()) : record(&library) {
        if (record->create_effect(&kOrvaneUuid, 0, 0, &handle) != 0) std::abort();
    }
    // Owns what was created elsewhere.
    explicit Instance(effect_handle_t created) : handle(created), record(&LoadedLibrary()) {}
    ~Instance() { Release(); }
    // Does nothing the second time.
    void Release() {
        if (handle != nullptr) record->release_effect(handle);
        handle = nullptr;
    }
    Instance(const Instance&) = delete;
    Instance& operator=(const Instance&) = delete;

    // A command whose reply is a status.
    int32_t Command(uint32_t code, uint32_t size = 0, void* data = nullptr) {
        int32_t status = -1;
        uint32_t replySize = sizeof status;
        (*handle)->command(handle, code, size, data, &replySize, &status);
        return status;
    }
    int32_t Configure(uint32_t rate, uint32_t channels) {
        effect_config_t config = MakeConfig(rate, channels);
        return Configure(config);
    }
    int32_t Configure(effect_config_t config) {
        return Command(EFFECT_CMD_CONFIGURE, sizeof config, &config);
    }
    int32_t Enable() { return Command(EFFECT_CMD_ENABLE); }
    int32_t Disable() { return Command(EFFECT_CMD_DISABLE); }
    void Reset() { (*handle)->command(handle, EFFECT_CMD_RESET, 0, nullptr, nullptr, nullptr); }
    int32_t Set(int32_t id, std::initializer_list<int32_t> values) {
        std::vector<int32_t> words = SetRecord(id, values);
        return Command(EFFECT_CMD_SET_PARAM, static_cast<uint32_t>(4 * words.size()), words.data());
    }
    // Every processor on, every value away from its default.
    void SwitchEverythingOn() {
        constexpr int32_t kSettings[][2] = {
            {PARAM_PLAYBACKGAIN_RATIO, 150},   {PARAM_PLAYBACKGAIN_VOLUME, 130},
            {PARAM_PLAYBACKGAIN_MAXGAIN, 400}, {PARAM_PLAYBACKGAIN_ENABLE, 1},
            {PARAM_EQUALIZER_ENABLE, 1},       {PARAM_ENHANCER_PROCESS, 180},
            {PARAM_ENHANCER_LOCONTOUR, 70},    {PARAM_ENHANCER_ENABLE, 1},
            {PARAM_OUTPUT_GAIN, 140},          {PARAM_LIMITER_GATE, 80}};
        for (int32_t band = 0; band < 10; ++band)
            Set(PARAM_EQUALIZER_BANDLEVEL, {band, 15 * band - 60});
        for (const auto& [id, value] : kSettings) Set(id, {value});
    }
    // Every level, gain and factor, each band's too, as sent: hundredths.
    void SetEveryValue(int32_t value) {
        for (int32_t band = 0; band < 10; ++band) Set(PARAM_EQUALIZER_BANDLEVEL, {band, value});
        for (const Parameter& parameter : kParameters)
            if (parameter.kind == ParameterKind::kValue) Set(parameter.id, {value});
    }
    // Configured, everything on, enabled.
    void Start(uint32_t rate, uint32_t channels) {
        Configure(rate, channels);
        SwitchEverythingOn();
        Enable();
    }
    // The value, or the status if it was refused.
    int32_t Get(int32_t id) {
        int32_t words[4] = {0, 4, 4, id};
        int32_t reply[5] = {-1, -1, -1, -1, -1};
        uint32_t replySize = sizeof reply;
        (*handle)->command(handle, EFFECT_CMD_GET_PARAM, sizeof words, words, &replySize, reply);
        return reply[0] == 0 ? reply[4] : reply[0];
    }
    int32_t Process(const int16_t* in, int16_t* out, uint32_t frames) {
        audio_buffer_s input = {frames, const_cast<int16_t*>(in)};
        audio_buffer_s output = {frames, out};
        return (*handle)->process(handle, &input, &output);
    }
    // The whole of `in` (interleaved) in buffers of `frames`; the last one may be shorter.
    std::vector<int16_t> Run(const std::vector<int16_t>& in, uint32_t frames, uint32_t channels) {
        std::vector<int16_t> out(in.size());
        for (size_t at = 0; at < in.size(); at += size_t{frames} * channels) {
            const size_t left = (in.size() - at) / channels;
            const uint32_t now = left < frames ? static_cast<uint32_t>(left) : frames;
            if (Process(in.data() + at, out.data() + at, now) != 0) std::abort();
        }
        return out;
    }

    effect_handle_t handle = nullptr;

private:
    const audio_effect_library_t* record;
};
