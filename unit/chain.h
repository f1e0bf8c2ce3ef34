// The processors of one effect instance. A buffer passes them in this order:
//
//   playback gain -> float -> equalizer -> enhancer -> output gain -> limiters -> 16 bit
//
// Delay: 255 frames of the output limiters, plus what the enabled processors state. Allocates:
// construction, SetSamplingRate, SetChannels, and Process beyond 2048 frames. Thread: no lock of
// its own; the owner serialises all calls. Logs nothing.
#pragma once
#include <cstdint>
#include <memory>
#include <new>
#include <tuple>
#include <utility>

#include "dsp/wave_buffer.h"
#include "effects/fir_equalizer.h"
#include "effects/orvane_sound.h"
#include "effects/output_limiters.h"
#include "effects/playback_gain.h"
#include "table/parameters.h"

// One place in the chain, with a slot for each arithmetic variant of its processor. The chain
// processes with the first slot. The others only receive settings and resets. A slot is empty if
// nothing was made for it or its memory was refused.
template <typename Main, typename... Others>
class Stage {
public:
    // Destroys the processor of the first slot, then makes a new one there.
    template <typename... Arguments>
    void Make(Arguments&&... arguments) {
        First().reset();
        First().reset(new (std::nothrow) Main(std::forward<Arguments>(arguments)...));
    }

    // Calls act(processor) for every filled slot, beginning with the first.
    template <typename Action>
    void ForEach(Action act) {
        std::apply([&act](auto&... slot) { ((slot ? act(*slot) : void()), ...); }, slots);
    }

    // Returns true if any slot is filled.
    bool Filled() const {
        return std::apply([](const auto&... slot) { return (... || (slot != nullptr)); }, slots);
    }

    // Returns the processor of the first slot, which must be filled.
    Main* operator->() { return First().get(); }

private:
    std::unique_ptr<Main>& First() { return std::get<0>(slots); }

    std::tuple<std::unique_ptr<Main>, std::unique_ptr<Others>...> slots;
};

class Chain {
public:
    // Makes every processor with the defaults of the parameter table. If memory is refused, the
    // chain is never ready.
    Chain(uint32_t rateHz, uint32_t channelCount);

    // Returns true if Process may be called: every processor exists, and none has lost its memory
    // in a change of rate or channels.
    bool Ready() const { return ready; }

    // The rate and the channel count that the processors were last given.
    uint32_t SamplingRate() const { return samplingRate; }
    uint32_t Channels() const { return channels; }

    // Sets the rate in Hz in every processor and resets all of them.
    void SetSamplingRate(uint32_t rateHz);
    // Sets 1 or 2 channels in every processor, replaces the wave buffer and resets all processors.
    void SetChannels(uint32_t count);

    // Sets one parameter of the chain in the table's units; a switch is off at 0. Only band
    // parameters use `band`. Ignores other parameters. The processors limit the value.
    void Set(ParameterId id, float value, int band = 0);

    // Clears the history of every processor; keeps all settings.
    void Reset();

    // Processes `frames` interleaved 16-bit frames (at least one) from `in` to `out`, which may be
    // the same memory. Overwrites `out` with the same number of frames; they begin with silence
    // while the enhancer collects its first block. Returns false if memory for a buffer of more
    // than 2048 frames is refused. `out` then holds only the playback gain's result.
    bool Process(const int16_t* in, int16_t* out, uint32_t frames);

private:
    // Calls visit(stage) in the order of resets.
    template <typename Visit>
    void ForEachStage(Visit visit);
    // Calls act(processor) for all processors, in that order.
    template <typename Action>
    void ForEach(Action act);

    // Gives every processor the rate and the channel count. One that has them already keeps its
    // state.
    void HandOn();
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
    // The slots for double arithmetic always stay empty.
    Stage<Equalizer, FIREqualizer_R32R64> equalizer;
    Stage<Enhancer, OrvaneSound_R32R64> enhancer;
    Stage<OutputLimiters> limiters;
};
