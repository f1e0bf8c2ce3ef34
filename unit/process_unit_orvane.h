// One effect instance for the framework: its lock, its commands and its log on top of the chain of
// processors (unit/chain.h).
//
// Allocates: construction, a configuration that changes rate or channels, and process beyond 2048
// frames. Threads: any, one mutex serialises commands against processing; release only when no call
// is running.
#pragma once
#include <pthread.h>

#include <cstdint>

#include "host/effect.h"
#include "unit/chain.h"

class ProcessUnit_Orvane final : public Effect {
public:
    // A chain whose memory is refused leaves the unit not ready for good: every process call then
    // answers -61.
    ProcessUnit_Orvane();
    ~ProcessUnit_Orvane();

    // in, out: the same number of frames of interleaved 16-bit samples; the same memory is fine.
    // 0: `out` holds as many frames, silence while the chain fills. -22: a null pointer or
    // different frame counts. -61, and `out` is untouched: disabled, not configured, not ready, or
    // no frames. If memory for a buffer of more than 2048 frames is refused, that is logged and
    // `out` holds the playback gain's result only.
    int32_t process(audio_buffer_s* in, audio_buffer_s* out) override;

    // Commands of the framework, see Effect::command; configure, reset, enable and the parameters
    // (table/parameters.h) act here. Always returns 0; the outcome is in the reply. Blocks are
    // pCmdData of cmdSize bytes and pReplyData of *replySize bytes, any of them short or null.
    int32_t command(uint32_t cmdCode, uint32_t cmdSize, void* pCmdData, uint32_t* replySize,
                    void* pReplyData) override;

    // Logs one parameter write and applies it. The caller holds the lock.
    void DispatchCommand(int nCmdID, int L, int H, int E, int R);

    // Resets every processor. The caller holds the lock.
    void ResetAllEffects();

private:
    // Takes the lock itself, behind the log line.
    int32_t SetParameter(uint32_t cmdSize, const void* pCmdData);
    // The caller holds the lock.
    int32_t TakeConfiguration(uint32_t cmdSize, const void* pCmdData);
    void ApplyParameter(int32_t identifier, int32_t L, int32_t H);
    bool QueryParameter(uint32_t cmdSize, const void* pCmdData, int32_t* value) const;

    pthread_mutex_t mutex;
    bool timestampEnabled = false;
    int64_t lastProcessTimeMs = 0;  // wall clock, see WrappedMilliseconds
    uint32_t mode = 0;              // the host's mark, 0 or 1
    Chain chain;
};
