// Ten-band linear-phase equalizer on interleaved floats, mono or stereo, in place.
//
// Nine moving averages, centred on the sample of 256 frames ago, with half-widths D of 1, 2, 4 ...
// 256 and weight 1 / (2 D), kept as running sums. A band is the difference of two neighbouring
// averages (the top band the centre sample less the narrowest average, the bottom band the widest
// average itself); the output is the sum of the bands times their gains. It is a symmetric FIR
// filter of 513 taps whose band edges move with the sampling rate: at 44100 Hz bands 1 to 8 are
// strongest at 99, 197, 391, 773, 1510, 2892, 5333 and 9252 Hz, band 9 at half the rate, and band 0
// holds what lies below some 86 Hz. With every gain 1 the terms telescope to the input, delayed.
//
// Delay: 256 frames while enabled, none otherwise. Allocates: the constructor only. Thread: no lock
// of its own; the owner serialises all calls.
#pragma once
#include <cstddef>
#include <cstdint>
#include <memory>
#include <type_traits>

#include "dsp/runs.h"
#include "dsp/softfloat/equalizer_core.h"
#include "dsp/stream.h"
#include "effects/equalizer_sums.h"
#include "platform/export.h"
#include "table/parameters.h"

// Real: type of state, gains and arithmetic. The two differ in two laws: see SetBandLevel and
// SetEnable.
template <typename Sample, typename Real>
class ORVANE_API FIREqualizer {
public:
    static constexpr size_t kBands = kBandCount;

    // Disabled, 44100 Hz, stereo, every gain 1.
    FIREqualizer();
    ~FIREqualizer();

    // Whether its memory was granted; without it Process leaves the samples alone.
    bool GetPrepared() const { return state != nullptr; }

    // One parameter of the table, in its units; a switch is off at 0. Others are ignored.
    ORVANE_LOCAL void Set(ParameterId id, float value, int band);
    // Hz. Only gates the processing, to the rates of dsp/stream.h; the history stays.
    void SetSamplingRate(unsigned int rate);
    // Interleaved channels; 1 and 2 are processed. A new count forgets the history.
    void SetChannels(unsigned int count);
    // Returns whether the setting changed. Switching the float variant on forgets the history; the
    // double variant keeps it.
    bool SetEnable(bool enable);
    // band 0 (lowest) to 9; others are ignored, and so is a level whose gain isn't finite. The
    // level is a linear offset from unity. Float variant: gain 1 + level from -1 to 0, 1 + 2 level
    // above, without bound. Double variant: 1 + level, at most 2. Below -1 the gain is 0.
    void SetBandLevel(int band, float level);

    // Forgets the history, as newly made; keeps gains and settings.
    void Reset();

    // `samples`: interleaved, `frames` frames. Left alone when disabled or outside the ranges
    // above.
    void Process(float* samples, unsigned int frames);

    // Process from 16 bits in steps, for a chain that runs other recurrences beside the
    // equalizer's: a chunk of up to kChunkFrames is taken in, its sums run (dsp/runs.h) if any are
    // left to run, and its bands are added up. `samples` hold the result after Finish. What Process
    // would leave alone is only converted.
    static constexpr bool kRunsBeside = kLanes > 1 && std::is_same_v<Real, float>;  // stereo
    static constexpr size_t kStereoRow = size_t{2} * kChunkFrames;
    struct ORVANE_LOCAL StereoChunk {
        auto Rest() { return Beside{run, count}; }
        uint32_t count = 0;  // frames
        SumRun<Real, typename VectorOf<Real, 2>::Type, 2, kStereoRow> run;
        alignas(Lanes) alignas(Real) Real rows[kSums * kStereoRow];
    };
    struct ORVANE_LOCAL FinishedChunk {
        static Alone Rest() { return {}; }
        uint32_t count = 0;
    };
    using Chunk = std::conditional_t<kRunsBeside, StereoChunk, FinishedChunk>;
    ORVANE_LOCAL void Begin(Chunk& chunk, const int16_t* in, float* samples, uint32_t count);
    ORVANE_LOCAL void Finish(const Chunk& chunk, float* samples);

private:
    ORVANE_LOCAL bool Processes() const;

    ORVANE_LOCAL size_t ProcessUnpacked(const int16_t* in, float* samples, size_t frames);
    ORVANE_LOCAL void ProcessFloats(float* samples, size_t frames);

    struct State {
        static constexpr uint32_t kDelay = 256, kReach = 2 * kDelay;  // frames
        static constexpr uint32_t kMove = 512;  // frames from one move of the history to the next
        static_assert(kChunkFrames <= kMove);

        Real bandGains[kBands];  // element j: gain of band 9 - j
        // Interleaved. The newest frames, kReach of them before the next.
        Real history[(kReach + kMove) * kMaxChannels];
        // [k]: sum of the 2 D - 1 inputs x[n - 256 - D + 1] .. x[n - 256 + D - 1], n the next frame
        Real runningSums[kBands - 1][kMaxChannels];
        uint32_t next;  // frame of the history that comes next
        // While it is in use it takes the place of history and sums: until it meets what it can't
        // hold.
        [[no_unique_address]] EqualizerCore<Real> core;
    };

    std::unique_ptr<State> state;
    uint32_t samplingRate = 0;
    uint32_t channels = 0;
    bool enabled = false;
};

extern template class FIREqualizer<float, float>;
extern template class FIREqualizer<float, double>;
using FIREqualizer_R32R32 = FIREqualizer<float, float>;
using FIREqualizer_R32R64 = FIREqualizer<float, double>;
