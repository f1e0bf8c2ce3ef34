// Automatic gain control for music on interleaved 16-bit samples, mono or stereo.
//
// Once per call it measures the loudness of the input: the mean square of a copy that is weighted
// by a 2200 Hz band-pass. The loudest channel counts. The loudness is L dB above a reference of 23
// dB below full scale. The AGC sets the gain that turns L into L / (ratio + 1). Large boosts are
// reduced, and the gain fades in over the first hundred calls.
//
// The applied gain moves in a straight line toward gain * volume, upward a sixteenth as fast as
// downward, and stays within the maximum gain. The amplified sample passes a limiter. All of this
// is integer arithmetic: gains and samples are Q24, and a 16-bit sample s enters as s * 512.
//
// Delay: 255 frames while enabled, none otherwise. Allocates: never. Thread: no lock of its own;
// the owner serialises all calls.
#pragma once
#include <cstddef>
#include <cstdint>

#include "dsp/biquad_fp.h"
#include "dsp/fixed_point.h"
#include "dsp/samples.h"
#include "effects/limiter_core.h"
#include "platform/export.h"
#include "table/parameters.h"

class ORVANE_API PlaybackGain {
public:
    // A new object is disabled, at 44100 Hz stereo, with ratio 1, volume 1 and maximum gain 1.
    PlaybackGain();

    // These three take effect with the next Process call.
    // A ratio of 0 leaves levels unchanged; a larger one brings them closer to the reference.
    // Negative values and NaN count as 0.
    void SetRatio(float ratio);
    // Linear factors below 128; larger ones saturate. NaN counts as 0.
    void SetVolume(float newVolume);
    void SetMaxGainFactor(float factor);

    // Sets one parameter of the table in the table's units; a switch is off at 0. Ignores
    // parameters of other processors.
    ORVANE_LOCAL void Set(ParameterId id, float value, int band);
    // Returns 1 if the setting changed, otherwise 0. Switching on resets.
    int SetEnable(bool enable);
    // Sets the rate in Hz. A new rate designs the weighting filter and resets.
    void SetSamplingRate(unsigned int rate);
    // Sets the number of interleaved channels, 1 or 2; ignores more. A new number resets.
    void SetChannels(unsigned int count);

    // Clears the history: the gain starts at 0 and fades in again. Keeps all settings.
    void Reset();

    // Returns the mean square of one channel after `filter`, where full scale squared is 2^48.
    // Sample i of the `frames` samples is at index offset + i * stride. The filter keeps its
    // history from call to call. Returns 0 for 0 frames.
    static uint64_t AnalyseWave(const int16_t* samples, unsigned int frames, int stride, int offset,
                                Biquad_FP& filter);

    // Processes `frames` interleaved frames from `in` to `out`, which may be the same memory. If
    // disabled, leaves `out` unchanged.
    void Process(const int16_t* in, int16_t* out, unsigned int frames);

    // The steps of Process, for a chain that interleaves the limiter with another recurrence. Begin
    // measures the loudness of all frames of the call. ProcessChunk then takes them in chunks of at
    // most Room() frames. `runner` is explained in dsp/runs.h.
    ORVANE_LOCAL void Begin(const int16_t* in, unsigned int frames);
    // While disabled, a chunk may cross the end of the limiter's lap.
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
    int64_t gain = 0;  // for all channels at the present frame, Q24
    int64_t step = 0;  // change of the gain per frame in this call
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

// The version with the runner Alone is compiled once.
extern template void PlaybackGain::ProcessChunk(const int16_t*, int16_t*, uint32_t, Alone);
