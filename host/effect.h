// Base class of an effect instance. It negotiates the stream's format with the framework and gives
// the default answers to the framework's standard commands.
#pragma once
#include <atomic>
#include <cstdint>

#include "platform/effect_api.h"
#include "platform/log.h"

class Effect {
public:
    // Processes `in` to `out`: frameCount frames of interleaved 16-bit samples. Returns 0, -22 or
    // -61.
    virtual int32_t process(audio_buffer_s* in, audio_buffer_s* out) = 0;

    // Handles the standard commands. Logs the command and stores the state that enable (3) and
    // disable (4) set. Replies status 0 to commands 0, 1, 3, 4, 5 and 7, "no such parameter" to 8,
    // and nothing to the others. Always returns 0. Reply says what is written to the reply block.
    virtual int32_t command(uint32_t cmdCode, uint32_t cmdSize, void* pCmdData, uint32_t* replySize,
                            void* pReplyData) = 0;

protected:
    // A new effect is disabled and not configured, at 44100 Hz stereo.
    Effect() = default;
    ~Effect() = default;
    Effect(const Effect&) = delete;
    Effect& operator=(const Effect&) = delete;

    // Checks and stores a configuration. pConfig points to a whole effect_config_t at any address.
    // Takes over the fields that both validity masks name, and adds a line for each step to `log`.
    // Returns 0 and sets `configured`, or returns -22 and clears it. If a field is refused, the
    // fields stored before it stay.
    int32_t configure(const void* pConfig, DeferredLog* log);

    // The base command writes the flag outside the owner's lock, and process reads it under the
    // lock. So it is one atomic byte. An enable does its resets under the lock before that, so the
    // flag needs to order nothing else. It is only loaded and stored: even on ARMv5 these are plain
    // byte accesses, which an exchange would not be.
    std::atomic<bool> enabled{false};
    bool configured = false;
    uint32_t samplingRate = 44100;  // Hz
    uint32_t channels = 2;

    static_assert(sizeof(std::atomic<bool>) == 1 && ATOMIC_BOOL_LOCK_FREE != 0);
};

// Makes the effect behind an instance; unit/ defines it. Returns null if memory is refused.
Effect* MakeEffect();
// Destroys an effect; null is allowed.
void DestroyEffect(Effect* effect);
