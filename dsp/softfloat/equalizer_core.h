// The arithmetic of FIREqualizer<float, float> in unpacked floats (number.h): history, running sums
// and bands. Each value has the bits that the equalizer's own step gives, but for the signs of
// zeros.
//
// Samples must be multiples of 2^-30 below 1.5, which conversion from 16 bits ensures. They are
// stored as integers in that unit. Gains must be possible factors. Then no product is subnormal.
//
// Allocates: never. Thread: no lock of its own; the owner serialises all calls.
#pragma once
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "dsp/samples.h"
#include "dsp/softfloat/average.h"
#include "dsp/softfloat/number.h"

class SoftEqualizerCore {
public:
    static constexpr size_t kBands = 10;
    static constexpr size_t kAverages = kBands - 1;
    static constexpr size_t kReach = 256;  // half-width of the widest average

    SoftEqualizerCore() { Reset(); }
    // Sets the history and the sums to silence. The core is in use from then on.
    void Reset();

    // Equalizes `frames` frames of `channels` interleaved samples. Reads `shorts`, or `samples` if
    // `shorts` is null, and writes `samples`. `gains` has kBands gains, the highest band first.
    // Returns the number of frames before the first chunk that can't be processed; that chunk stays
    // unchanged. A chunk can't be processed if a float sample or a gain doesn't fit. So the result
    // is `frames` if `shorts` are given and the gains fit, and 0 if a gain doesn't fit. It is also
    // 0 if the core isn't in use.
    size_t Process(const int16_t* shorts, float* samples, size_t frames, size_t channels,
                   const float* gains);

    // Copies the last 2 * kReach interleaved frames and the sums ([average][channel]) to the plain
    // form, as floats. The core isn't in use from then on. Returns false, and copies nothing, if it
    // wasn't in use before.
    bool HandOver(float* frames, float (*averages)[kMaxChannels], size_t channels);

private:
    static constexpr size_t kChunk = 128;  // frames at a time
    static constexpr size_t kRoom = 512;   // frames that enter between two moves of the history
    static constexpr size_t kHistory = 2 * kReach;

    bool Take(const int16_t* shorts, const float* samples, size_t frames, size_t channels);
    void ProcessChunk(size_t channel, size_t frames, const SoftFactor* gains, AverageRow* rows);
    void MakeRoom(size_t frames);

    SampleSum sums[kMaxChannels][kAverages];
    // In units of 2^-30. The newest samples lie before `end`; the assembly version of RunAverage
    // also reads one behind them.
    int32_t history[kMaxChannels][kHistory + kRoom + 1];
    size_t end;
    size_t silent;  // frames of silence before `end`, counted up to kHistory + kChunk
    bool inUse;
};

// Stands in for the core where floats aren't unpacked: never in use, and empty.
struct NoEqualizerCore {
    static void Reset() {}
    template <typename Real>
    static size_t Process(const int16_t*, float*, size_t, size_t, const Real*) {
        return 0;
    }
    template <typename Real>
    static bool HandOver(Real*, Real (*)[kMaxChannels], size_t) {
        return false;
    }
};
template <typename Real>
using EqualizerCore = std::conditional_t<kSoftFloat && std::is_same_v<Real, float>,
                                         SoftEqualizerCore, NoEqualizerCore>;
