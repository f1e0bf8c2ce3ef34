// One running average of the equalizer over a run of frames, and the band that it splits off.
// docs/soft-float.md, "Running sums".
#pragma once
#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "dsp/softfloat/number.h"

// In this file the unit is that of the samples, 2^-30 of full scale: a number {m, e} means m * 2^e
// units.
//
// Returns sum + x. A sum of 0 must have a negative e. |x| is below 1.5 * 2^30 and has 24
// significant bits.
[[gnu::always_inline]] inline SoftFloat PlusSample(SoftFloat sum, int32_t x) {
    constexpr int32_t kLarge = 1 << 29;
    const int32_t shift = sum.e + softfloat::kAligned;
    if (shift > 0) {
        const int32_t joining = softfloat::ShiftedWithSticky(x, shift);
        return softfloat::Rounded((sum.m >> softfloat::kAligned) + joining, shift);
    }
    const int32_t whole = sum.m >> std::min(softfloat::kAligned - shift, 31);
    if (x >= -kLarge && x < kLarge) [[likely]]
        return softfloat::Rounded(whole + x, 0);
    return softfloat::Rounded(softfloat::ShiftedWithSticky(whole, 1) + (x >> 1), 1);
}

// Returns a sample as a number. A sample has 24 significant bits, so from 2^30 on it is even and
// can be halved.
inline SoftFloat NumberOf(int32_t units) {
    const bool large = units < -(1 << 29) || units >= 1 << 29;
    return large ? softfloat::Rounded(units >> 1, 1) : softfloat::Rounded(units, 0);
}

// A sum of samples that is not divided by their count: the count is a power of 2 and is part of the
// gains. The sum is m * 2^s units, where s = e - raised. From 2^25 units on, 2^23 <= |m| <= 2^24;
// below, s is 0. The exponent of the average with half-width 2^k is raised by kRaised * k.
struct alignas(8) SampleSum {
    int32_t m, e;
};
inline constexpr int32_t kRaised = 2;

// The exponents of outputs are raised by this much, compared with numbers (number.h). After a sum
// of outputs is normalised, the exponent is then the float's exponent field.
inline constexpr int32_t kOutputRaised = 48;

struct AverageRow {
    SampleSum sum;     // in: the narrower average's sum; out: this one's, which is twice as wide
    SoftFloat output;  // sum of the bands so far
};

struct RunningAverage {
    SampleSum sum;
    SoftFactor gain;  // gain of the band between the narrower average and this one
    int32_t raised;   // how much the sum's exponent is raised: kRaised more than the narrower one's
};

inline SoftFloat NumberOf(SampleSum sum, int32_t raised) {
    return softfloat::Rounded(sum.m, sum.e - raised);
}
inline SampleSum SumOf(SoftFloat a, int32_t raised) {
    if (a.e >= -4) return {a.m / 64, a.e + 6 + raised};
    return {a.m >> std::min(-a.e, 31), raised};
}

// For each frame n: adds entering[n] to the sum, adds the band to the output, subtracts leaving[n]
// from the sum. With `first`, the band becomes the output, the narrower average is the single
// sample leaving[n + 1], and no exponent is raised. frames >= 1. The definition of RunAverage.
template <bool first>
inline void RunAveragePortable(AverageRow* rows, const int32_t* entering, const int32_t* leaving,
                               RunningAverage* state, size_t frames) {
    const int32_t raised = state->raised;
    const SoftFactor gain = {state->gain.m, state->gain.e + raised};
    SoftFloat running = NumberOf(state->sum, raised);
    for (const AverageRow* const end = rows + frames; rows != end; ++rows) {
        running = PlusSample(running, *entering++);
        const SoftFloat half = first ? NumberOf(leaving[1]) : NumberOf(rows->sum, raised - kRaised);
        const SoftFloat band = gain * (SoftFloat{half.m, half.e + 1} - running);
        rows->sum = SumOf(running, raised);
        rows->output = first ? band : band + rows->output;
        running = PlusSample(running, -*leaving++);
    }
    state->sum = SumOf(running, raised);
}

// RunAverage is the assembly version where there is one. frames >= 1. entering[frames] must be
// readable; its value doesn't matter.
#if defined(ORVANE_SOFTFLOAT_ASSEMBLY)
extern "C" void SoftFirstAverage(AverageRow* rows, const int32_t* entering, const int32_t* leaving,
                                 RunningAverage* state, size_t frames);
extern "C" void SoftAverage(AverageRow* rows, const int32_t* entering, const int32_t* leaving,
                            RunningAverage* state, size_t frames);
template <bool first>
inline constexpr auto& RunAverage = first ? SoftFirstAverage : SoftAverage;
#else
template <bool first>
inline constexpr auto& RunAverage = RunAveragePortable<first>;
#endif
