// One instance of an effect, called in the way the framework calls it.
//
// Calls return 0 or the negative status of a refusal. They return -22 if there is no instance and
// -1 if the library replied nothing. Nothing here allocates or throws. Thread: any, as the library
// allows, but creating and releasing must not overlap with other calls.
#pragma once
#include <cstdint>
#include <initializer_list>

#include "client/parameter_command.h"
#include "host/identity.h"
#include "platform/library_record.h"

// Returns a configuration with 16-bit PCM on both sides. rateHz is 32000 to 48000; channels is 1
// or 2.
effect_config_t MakeConfig(uint32_t rateHz, uint32_t channels);

class ClientInstance {
public:
    // Creates an instance. The record must outlive it.
    explicit ClientInstance(const audio_effect_library_t& library,
                            const effect_uuid_s& uuid = kOrvaneUuid);
    // Takes over an instance that was created elsewhere.
    ClientInstance(const audio_effect_library_t& library, effect_handle_t created)
        : handle(created), record(&library) {}
    ~ClientInstance() { Release(); }
    ClientInstance(const ClientInstance&) = delete;
    ClientInstance& operator=(const ClientInstance&) = delete;

    // Returns the status with which the library answered the creation.
    int32_t CreateStatus() const { return createStatus; }
    // Releases the instance and returns the library's status. A second call does nothing.
    int32_t Release();

    // Sends a command that replies with a status, and returns that status.
    int32_t Command(uint32_t code, uint32_t size = 0, void* data = nullptr);
    int32_t Initialise() { return Command(EFFECT_CMD_INIT); }
    int32_t Configure(effect_config_t config);
    int32_t Configure(uint32_t rateHz, uint32_t channels) {
        return Configure(MakeConfig(rateHz, channels));
    }
    int32_t Enable() { return Command(EFFECT_CMD_ENABLE); }
    int32_t Disable() { return Command(EFFECT_CMD_DISABLE); }
    // Sends a reset, which has no reply.
    void Reset();

    int32_t Set(ParameterCommand command);
    int32_t Set(int32_t id, std::initializer_list<int32_t> values) {
        return Set(PackSet(id, values));
    }
    // Returns the value that the library answered, or the negative status of a refusal. The two
    // can't be confused, because no value of this library is negative.
    int32_t Get(int32_t id);

    // Processes one buffer of `frames` interleaved frames with the configured number of channels.
    // `in` is only read; `out` may be the same memory.
    int32_t Process(const int16_t* in, int16_t* out, uint32_t frames);

    effect_handle_t handle = nullptr;  // for calls that are not above; null if there is no instance

private:
    const audio_effect_library_t* record;
    int32_t createStatus = kStatusOk;
};
