// One instance of an effect, called as the framework calls it.
//
// Calls answer 0 or the negative status of a refusal: -22 also where there is no instance, -1 where
// the library replied nothing. Nothing here allocates or throws. Threads: as the library says, any;
// create and release alone.
#pragma once
#include <cstdint>
#include <initializer_list>

#include "client/parameter_command.h"
#include "host/identity.h"
#include "platform/effect_api.h"

// Both sides 16-bit PCM. rateHz: 32000 to 48000; channels: 1 or 2.
effect_config_t MakeConfig(uint32_t rateHz, uint32_t channels);

class ClientInstance {
public:
    // The record must outlive it.
    explicit ClientInstance(const audio_effect_library_t& library,
                            const effect_uuid_s& uuid = kOrvaneUuid);
    // Owns an instance that was created elsewhere.
    ClientInstance(const audio_effect_library_t& library, effect_handle_t created)
        : handle(created), record(&library) {}
    ~ClientInstance() { Release(); }
    ClientInstance(const ClientInstance&) = delete;
    ClientInstance& operator=(const ClientInstance&) = delete;

    // What creating it answered.
    int32_t CreateStatus() const { return createStatus; }
    // What releasing it answered; the second time does nothing.
    int32_t Release();

    // A command whose reply is a status.
    int32_t Command(uint32_t code, uint32_t size = 0, void* data = nullptr);
    int32_t Initialise() { return Command(EFFECT_CMD_INIT); }
    int32_t Configure(effect_config_t config);
    int32_t Configure(uint32_t rateHz, uint32_t channels) {
        return Configure(MakeConfig(rateHz, channels));
    }
    int32_t Enable() { return Command(EFFECT_CMD_ENABLE); }
    int32_t Disable() { return Command(EFFECT_CMD_DISABLE); }
    // Replies nothing.
    void Reset();

    int32_t Set(ParameterCommand command);
    int32_t Set(int32_t id, std::initializer_list<int32_t> values) {
        return Set(PackSet(id, values));
    }
    // The answer, or the status of a refusal. No answer of this library is negative.
    int32_t Get(int32_t id);

    // One buffer of `frames` interleaved frames; `in` is only read, and may be `out`.
    int32_t Process(const int16_t* in, int16_t* out, uint32_t frames);

    effect_handle_t handle = nullptr;  // for calls of other shapes; null where there is no instance

private:
    const audio_effect_library_t* record;
    int32_t createStatus = kStatusOk;
};
