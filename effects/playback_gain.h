// Automatic gain control for music on interleaved 16-bit samples, mono or stereo.
//
// Once per call it measures the loudness of the input (mean square of a copy weighted by a 2200 Hz
// band-pass, the loudest channel counts) as L dB above a reference of 23 dB below full scale, and
// sets the gain that makes L / (ratio + 1) of it, softened for large boosts and faded in over the
// first hundred calls. Per sample and channel the applied gain moves in a straight line toward
// gain * volume (a sixteenth as fast upward), stays within the maximum gain, and the amplified
// sample passes a limiter. The sample path is integer: gains and samples are Q24, a 16-bit sample s
// enters as s * 512.
//
// Delay: 255 frames while enabled, none otherwise. Allocates: never. Thread: no lock of its own;
// the owner serialises all calls.
#pragma once
#include <cstddef>
#include <cstdint>

#include "dsp/biquad_fp.h"
#include "dsp/fixed_point.h"
#include "dsp/stream.h"
#include "effects/limiter_core.h"
#include "platform/export.h"
#include "table/parameters.h"

class ORVANE_API PlaybackGain {
public:
    // Disabled, 44100 Hz, stereo, ratio 1, volume 1, maximum gain factor 1.
    PlaybackGain();

    // Setters of levels take effect with the next Process call.
    // ratio: 0 leaves levels alone, larger pulls harder; below 0 or not a number counts as 0.
    void SetRatio(float ratio);
    // Linear factors, 1.0 is unity, below 128 (above saturates); not a number counts as 0.
    void SetVolume(float newVolume);
    void SetMaxGainFactor(float factor);

    // One parameter of the table, in its units; a switch is off at 0. Others are ignored.
    ORVANE_LOCAL void Set(ParameterId id, float value, int band);
    // Returns 1 if the setting changed, else 0. Switching on resets.
    int SetEnable(bool enable);
    // Hz. A new rate designs the weighting filter and resets.
    void SetSamplingRate(unsigned int rate);
    // Interleaved channels, 1 or 2; more are ignored. A new count resets.
    void SetChannels(unsigned int count);

    // Forgets the history: the gain starts at 0 and fades in again. Keeps all settings.
    void Reset();

    // Mean square of one channel of `frames` frames of interleaved `samples` (sample i lies at
    // offset + i * stride) behind `filter`, whose history goes on; full scale squared is 2^48. 0
    // for no frames.
    static uint64_t AnalyseWave(const int16_t* samples, unsigned int frames, int stride, int offset,
                                Biquad_FP& filter);

    // `in`, `out`: interleaved, `frames` frames; may be the same memory. Disabled, `out` is left
    // alone.
    void Process(const int16_t* in, int16_t* out, unsigned int frames);

    // Process in steps, for a chain that runs another recurrence beside the limiter's: once the
    // loudness of a call's `frames`, then all of them in chunks of up to Room. Runner: dsp/runs.h.
    ORVANE_LOCAL void Begin(const int16_t* in, unsigned int frames);
    // While disabled nothing ends at a lap.
    ORVANE_LOCAL uint32_t Room() const {
        return enabled ? limiter.Room(0, channels) : kChunkFrames;
    }
    template <typename Runner>
    ORVANE_LOCAL void ProcessChunk(const int16_t* in, int16_t* out, uint32_t count, Runner runner);

private:
    ORVANE_LOCAL void DesignWeighting();
    ORVANE_LOCAL int64_t MeasureGain(const int16_t* in, unsigned int frames);
    ORVANE_LOCAL void AmplifyChunk(const int16_t* in, int32_t* chunk, uint32_t frames);

    float invCompressionRatio = 0.5F;
    float activeCompressionRatio = 2.0F;
    int32_t activeVolume = kQ24One;
    int32_t activeMaxGain = kQ24One;
    float compressionRatio = 2.0F;  // ratio + 1
    int32_t warmupCount = 0;        // calls since the last Reset, up to 100
    int32_t volume = kQ24One;
    int32_t maxGain = kQ24One;
    int64_t gain = 0;  // of all channels, at the present frame, Q24
    int64_t step = 0;  // what it moves by in this call, a frame
    Biquad_FP weighting[kMaxChannels];
    FrameLimiter<Q24Limiting> limiter;
    uint32_t samplingRate = 44100;  // Hz
    uint32_t channels = 2;
    bool enabled = false;
};

template <typename Runner>
void PlaybackGain::ProcessChunk(const int16_t* in, int16_t* out, uint32_t count, Runner runner) {
    if (!enabled || channels == 0) return runner();
    int32_t chunk[kChunkFrames * kMaxChannels];
    AmplifyChunk(in, chunk, count);
    limiter.ProcessChunkToShort(chunk, count, channels, out, runner);
}

// One copy of what runs alone.
extern template void PlaybackGain::ProcessChunk(const int16_t*, int16_t*, uint32_t, Alone);
