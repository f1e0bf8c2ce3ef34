// Ten-band linear-phase equalizer on interleaved floats, mono or stereo, in place.
//
// Nine moving averages are centred on the sample of 256 frames ago. They have half-widths D of 1,
// 2, 4
// ... 256 and weight 1 / (2 D), and are kept as running sums. A band is the difference of two
// neighbouring averages. The highest band is the centre sample minus the narrowest average; the
// lowest band is the widest average itself. The output is the sum of the bands times their gains.
//
// So the equalizer is a symmetric FIR filter of 513 taps. Its band edges move with the sampling
// rate. At 44100 Hz bands 1 to 8 are strongest at 99, 197, 391, 773, 1510, 2892, 5333 and 9252 Hz.
// Band 9 is strongest at half the rate, and band 0 holds what is below about 86 Hz. With every gain
// 1 the sum is the delayed input.
//
// Delay: 256 frames while enabled, none otherwise. Allocates: the constructor only. Thread: no lock
// of its own; the owner serialises all calls.
#pragma once
#include <cstddef>
#include <cstdint>
#include <memory>
#include <type_traits>

#include "dsp/runs.h"
#include "dsp/samples.h"
#include "dsp/softfloat/equalizer_core.h"
#include "effects/equalizer_sums.h"
#include "platform/export.h"
#include "table/parameters.h"

// `Real` is the type of state, gains and arithmetic. The float and the double variant differ in
// SetBandLevel and SetEnable.
template <typename Sample, typename Real>
class ORVANE_API FIREqualizer {
public:
    static constexpr size_t kBands = kBandCount;

    // A new equalizer is disabled, at 44100 Hz stereo, with every gain 1.
    FIREqualizer();
    ~FIREqualizer();

    // Returns false if memory was refused. Process then leaves the samples unchanged.
    bool GetPrepared() const { return state != nullptr; }

    // Sets one parameter of the table in the table's units; a switch is off at 0. Ignores
    // parameters that aren't the equalizer's.
    ORVANE_LOCAL void Set(ParameterId id, float value, int band);
    // Sets the rate in Hz. It only decides whether Process works (the rates of dsp/samples.h). The
    // history stays.
    void SetSamplingRate(unsigned int rate);
    // Sets the number of interleaved channels; 1 and 2 are processed. A new number clears the
    // history.
    void SetChannels(unsigned int count);
    // Returns true if the setting changed. Switching the float variant on clears the history; the
    // double variant keeps it.
    bool SetEnable(bool enable);
    // Sets the level of a band, 0 (lowest) to 9. Ignores other bands, and levels whose gain isn't
    // finite. In the float variant the gain is 1 + level for levels from -1 to 0 and 1 + 2 level
    // above, without bound. In the double variant it is 1 + level, at most 2. Levels below -1 give
    // a gain of 0.
    void SetBandLevel(int band, float level);

    // Clears the history, as in a new object; keeps gains and settings.
    void Reset();

    // Processes `frames` interleaved frames in place. Leaves them unchanged if disabled, or if rate
    // or channel count is outside the ranges above.
    void Process(float* samples, unsigned int frames);

    // The steps of Process from 16 bits, for a chain that interleaves the equalizer's sums with
    // other recurrences. Begin takes in a chunk of at most kChunkFrames frames. Chunk::Rest() is
    // the run that is left, if any (dsp/runs.h). Finish adds up the bands; `samples` then hold the
    // result. Samples that Process would leave unchanged are only converted.
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
        static constexpr uint32_t kMove = 512;  // frames between two moves of the history
        static_assert(kChunkFrames <= kMove);

        Real bandGains[kBands];  // element j: gain of band 9 - j
        // Interleaved frames. The newest kReach of them lie before `next`.
        Real history[(kReach + kMove) * kMaxChannels];
        // [k]: the sum of the 2 D - 1 inputs x[n - 256 - D + 1] .. x[n - 256 + D - 1], where n is
        // the next frame.
        Real runningSums[kBands - 1][kMaxChannels];
        uint32_t next;  // index in the history of the next frame
        // While the core is in use, it holds history and sums instead. It is in use until it meets
        // a sample that it can't hold.
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
