// One effect instance: owns the processors of the chain, serialises commands against processing
// with one mutex, and turns each buffer of interleaved 16-bit PCM into processed PCM:
//
//   playback gain -> float -> equalizer -> enhancer -> output gain -> limiter per channel -> 16 bit
//
// Delay: 255 frames of the output limiters, plus what the enabled processors state. The output
// buffer is overwritten, never accumulated into. Allocates: construction, a configuration that
// changes rate or channels, and process beyond 2048 frames. Threads: any; release only when no call
// is running.
#pragma once
#include <pthread.h>

#include <cstdint>
#include <memory>

#include "dsp/wave_buffer.h"
#include "effects/fir_equalizer.h"
#include "effects/limiter.h"
#include "effects/orvane_sound.h"
#include "effects/playback_gain.h"
#include "host/effect.h"

class ProcessUnit_Orvane final : public Effect {
public:
    // Builds the whole chain. A processor whose memory is refused leaves the unit not ready for
    // good: every process call then answers -61.
    ProcessUnit_Orvane();
    ~ProcessUnit_Orvane();

    // in, out: the same number of frames of interleaved 16-bit samples; the same memory is fine.
    // 0: `out` holds as many frames, silence while the chain fills. -22: a null pointer or
    // different frame counts. -61, and `out` is untouched: disabled, not configured, not ready, or
    // no frames. If memory for a buffer of more than 2048 frames is refused, that is logged and
    // `out` holds the playback gain's result only.
    int32_t process(audio_buffer_s* in, audio_buffer_s* out) override;

    // Commands of the framework, see Effect::command; configure, reset, enable and the parameters
    // (unit/parameters.h) act here. Always returns 0; the outcome is in the reply. Blocks are
    // pCmdData of cmdSize bytes and pReplyData of *replySize bytes, any of them short or null.
    int32_t command(uint32_t cmdCode, uint32_t cmdSize, void* pCmdData, uint32_t* replySize,
                    void* pReplyData) override;

    // Applies one parameter write. The caller holds the lock.
    void DispatchCommand(int nCmdID, int L, int H, int E, int R);

    // Resets every processor. The caller holds the lock.
    void ResetAllEffects();

private:
    void SetUpProcessors();
    bool AllProcessorsExist() const;
    bool EnhancerPrepared() const;
    void ReplaceWaveBuffer();
    int32_t Configure(uint32_t cmdSize, const void* pCmdData);
    void ApplySamplingRate();
    void ApplyChannels();
    int32_t SetParameter(uint32_t cmdSize, const void* pCmdData);
    bool QueryParameter(uint32_t cmdSize, const void* pCmdData, int32_t* value) const;
    void FinishSamples(float* samples, uint32_t frames);

    pthread_mutex_t mutex;
    bool timestampEnabled = false;
    int64_t lastProcessTimeMs = 0;  // wall clock, see WrappedMilliseconds
    bool ready = false;
    uint32_t mode = 0;        // the host's mark, 0 or 1
    float outputGain = 1.0F;  // linear
    std::unique_ptr<WaveBuffer_R32> waveBuffer;
    std::unique_ptr<PlaybackGain> playbackGain;
    std::unique_ptr<Limiter> limiterLeft, limiterRight;  // the left one also serves mono
    std::unique_ptr<FIREqualizer_R32R32> equalizer;
    std::unique_ptr<OrvaneSound_R32R32> enhancer;
    // Slots of the pair with double arithmetic. This unit leaves them empty; a unit that fills them
    // gets their settings, resets and readiness from here.
    std::unique_ptr<FIREqualizer_R32R64> equalizerR32R64;
    std::unique_ptr<OrvaneSound_R32R64> enhancerR32R64;
    // What the processors were last given; a rejected configuration may have stored other values.
    uint32_t appliedSamplingRate = 44100;  // Hz
    uint32_t appliedChannels = 2;
};
