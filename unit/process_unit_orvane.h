// One effect instance for the framework. It adds the lock, the commands and the log to the chain of
// processors (unit/chain.h).
//
// Allocates: construction, a configuration that changes rate or channels, and process beyond 2048
// frames. Thread: any; one mutex serialises commands and processing. Destroy it only when no call
// is running.
#pragma once
#include <pthread.h>

#include <cstdint>

#include "host/effect.h"
#include "unit/chain.h"

class ProcessUnit_Orvane final : public Effect {
public:
    // If the chain's memory is refused, the unit is never ready: every process call then returns
    // -61.
    ProcessUnit_Orvane();
    ~ProcessUnit_Orvane();

    // Processes interleaved 16-bit frames from `in` to `out`, which have the same frame count and
    // may be the same memory. Returns 0 if `out` holds the result (silence while the chain fills).
    // Returns -22 for a null pointer or different frame counts. Returns -61, with `out` unchanged,
    // if the unit is disabled, not configured or not ready, or if there are no frames. If memory
    // for a buffer of more than 2048 frames is refused, it logs that, and `out` holds only the
    // playback gain's result.
    int32_t process(audio_buffer_s* in, audio_buffer_s* out) override;

    // Handles the framework's commands, see Effect::command. Configure, reset, enable and the
    // parameters (table/parameters.h) are handled here. Always returns 0; the outcome is in the
    // reply. pCmdData has cmdSize bytes and pReplyData *replySize bytes; any block may be too short
    // or null.
    int32_t command(uint32_t cmdCode, uint32_t cmdSize, void* pCmdData, uint32_t* replySize,
                    void* pReplyData) override;

    // Logs one parameter write and applies it. The caller holds the lock.
    void DispatchCommand(int nCmdID, int L, int H, int E, int R);

    // Resets every processor. The caller holds the lock.
    void ResetAllEffects();

private:
    // These take the lock themselves and log without it: SetParameter before, the other afterwards.
    int32_t SetParameter(uint32_t cmdSize, const void* pCmdData);
    int32_t TakeConfiguration(uint32_t cmdSize, const void* pCmdData);
    // The caller holds the lock.
    int32_t ApplyConfiguration(const void* pConfig, DeferredLog* log);
    void ApplyParameter(int32_t identifier, int32_t L, int32_t H);
    bool QueryParameter(uint32_t cmdSize, const void* pCmdData, int32_t* value) const;

    pthread_mutex_t mutex;
    bool timestampEnabled = false;
    int64_t lastProcessTimeMs = 0;  // wall clock, see WrappedMilliseconds
    uint32_t mode = 0;              // the host's mark, 0 or 1
    Chain chain;
};
