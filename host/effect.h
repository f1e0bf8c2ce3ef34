// Base of an effect instance: the stream that the framework negotiates and the default answers to
// its standard commands.
#pragma once
#include <atomic>
#include <cstdint>

#include "platform/effect_api.h"

class Effect {
public:
    // in, out: frameCount frames of interleaved 16-bit samples. 0, -22 or -61.
    virtual int32_t process(audio_buffer_s* in, audio_buffer_s* out) = 0;

    // Standard commands: logs the command, stores what enable (3) and disable (4) say, and replies:
    // status 0 to 0, 1, 3, 4, 5 and 7, "no such parameter" to 8, nothing to the others. Always
    // returns 0. See Reply for what is written where.
    virtual int32_t command(uint32_t cmdCode, uint32_t cmdSize, void* pCmdData, uint32_t* replySize,
                            void* pReplyData) = 0;

protected:
    // Disabled, unconfigured, 44100 Hz, stereo.
    Effect() = default;
    ~Effect() = default;
    Effect(const Effect&) = delete;
    Effect& operator=(const Effect&) = delete;

    // pConfig: a whole effect_config_t at any address. Takes over what both validity masks name and
    // logs each step. 0 and `configured`, or -22 and not configured; what was stored before the
    // field that failed stays.
    int32_t configure(const void* pConfig);

    // Written by the base command outside the owner's lock, read under it: one atomic byte. What an
    // enable resets is settled under the lock before, so the flag orders nothing else. It is only
    // loaded and stored, plain byte accesses even on ARMv5, where an exchange would not be.
    std::atomic<bool> enabled{false};
    bool configured = false;
    uint32_t samplingRate = 44100;  // Hz
    uint32_t channels = 2;

    static_assert(sizeof(std::atomic<bool>) == 1 && ATOMIC_BOOL_LOCK_FREE != 0);
};

// The effect behind every instance; unit/ defines it. Null if memory is refused.
Effect* MakeEffect();
// Null does nothing.
void DestroyEffect(Effect* effect);
