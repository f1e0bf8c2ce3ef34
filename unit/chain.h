// The processors of one effect instance, their order, and the path of a buffer through them:
//
//   playback gain -> float -> equalizer -> enhancer -> output gain -> limiters -> 16 bit
//
// Delay: 255 frames of the output limiters, plus what the enabled processors state. Allocates:
// construction, SetSamplingRate, SetChannels, and Process beyond 2048 frames. Thread: no lock of
// its own; the owner serialises all calls. Logs nothing.
#pragma once
#include <cstdint>

#include "dsp/wave_buffer.h"
#include "effects/fir_equalizer.h"
#include "effects/orvane_sound.h"
#include "effects/output_limiters.h"
#include "effects/playback_gain.h"
#include "table/parameters.h"
#include "unit/stage.h"

class Chain {
public:
    // Every processor, with the defaults of the parameter table. One whose memory is refused leaves
    // the chain not ready for good.
    Chain(uint32_t rateHz, uint32_t channelCount);

    // Whether Process may be called: every processor is there, and none lost its memory to a change
    // of rate or channels since.
    bool Ready() const { return ready; }

    // What the processors were last given.
    uint32_t SamplingRate() const { return samplingRate; }
    uint32_t Channels() const { return channels; }

    // Hz. Hands the rate on to every processor and resets all.
    void SetSamplingRate(uint32_t rateHz);
    // 1 or 2. Hands the count on to every processor, replaces the wave buffer, and resets all.
    void SetChannels(uint32_t count);

    // One parameter of the chain, in the table's units; a switch is off at 0. `band` counts for a
    // parameter of bands only. Other parameters are ignored; limits are the processors'.
    void Set(ParameterId id, float value, int band = 0);

    // Forgets the history of every processor, keeps all settings.
    void Reset();

    // in, out: `frames` frames (not 0) of interleaved 16-bit samples; the same memory is fine.
    // `out` is overwritten with as many frames, silence in front while the enhancer gathers its
    // first block. False if memory for a buffer of more than 2048 frames is refused: `out` then
    // holds the playback gain's result only.
    bool Process(const int16_t* in, int16_t* out, uint32_t frames);

private:
    // Calls visit(stage) in the order of resets.
    template <typename Visit>
    void ForEachStage(Visit visit);
    // Calls act(processor) for all there are, in that order.
    template <typename Action>
    void ForEach(Action act);

    void HandOnSamplingRate();
    void HandOnChannels();
    bool Complete();
    void Begin(const int16_t* in, int16_t* out, float* samples, uint32_t frames);
    uint32_t Finish(float* samples, int16_t* out, uint32_t frames);

    using Equalizer = FIREqualizer_R32R32;
    using Enhancer = OrvaneSound_R32R32;
    uint32_t samplingRate;  // Hz
    uint32_t channels;
    bool ready = false;
    Stage<WaveBuffer_R32> waveBuffer;
    Stage<PlaybackGain> playbackGain;
    // The variants with double arithmetic are never made here.
    Stage<Equalizer, FIREqualizer_R32R64> equalizer;
    Stage<Enhancer, OrvaneSound_R32R64> enhancer;
    Stage<OutputLimiters> limiters;
};
