// One running average of the equalizer over a run of frames, and its band.
#pragma once
#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "dsp/softfloat/number.h"

// Here a number counts in units of the samples: {m, e} means m * 2^e of them.
//
// x joins the sum, which has a negative e if it is 0; |x| is below 1.5 * 2^30 and has 24
// significant bits. "Running sums".
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

// A sample has 24 significant bits, so one of 2^30 and more is even.
inline SoftFloat NumberOf(int32_t units) {
    const bool large = units < -(1 << 29) || units >= 1 << 29;
    return large ? softfloat::Rounded(units >> 1, 1) : softfloat::Rounded(units, 0);
}

// A sum of samples, not divided by their count: what an average lacks is a power of 2 and lies in
// the gains. It is m * 2^s units, s = e - raised: from 2^25 on 2^23 <= |m| <= 2^24, below s is 0.
// Of the average of half-width 2^k the exponent is raised by kRaised * k. "Running sums".
struct alignas(8) SampleSum {
    int32_t m, e;
};
inline constexpr int32_t kRaised = 2;

// What the exponents of outputs are raised by, as numbers (number.h): the exponent field of a float
// is then at hand when a sum of them has been normalised.
inline constexpr int32_t kOutputRaised = 48;

struct AverageRow {
    SampleSum sum;     // in: of the narrower average, out: of this one, twice as wide
    SoftFloat output;  // the sum of the bands so far
};

struct RunningAverage {
    SampleSum sum;
    SoftFactor gain;  // of the band between the narrower average and this one
    int32_t raised;
};

inline SoftFloat NumberOf(SampleSum sum, int32_t raised) {
    return softfloat::Rounded(sum.m, sum.e - raised);
}
inline SampleSum SumOf(SoftFloat a, int32_t raised) {
    if (a.e >= -4) return {a.m / 64, a.e + 6 + raised};
    return {a.m >> std::min(-a.e, 31), raised};
}

// Frame n: entering[n] joins the sum, the band joins the output (is it, where `first`), leaving[n]
// leaves the sum. Where `first`, leaving[n + 1] is the narrower average. At least one frame.
template <bool first>
inline void RunAverageText(AverageRow* rows, const int32_t* entering, const int32_t* leaving,
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

#if defined(ORVANE_SOFTFLOAT_ASSEMBLY)
extern "C" void SoftFirstAverage(AverageRow* rows, const int32_t* entering, const int32_t* leaving,
                                 RunningAverage* state, size_t frames);
extern "C" void SoftAverage(AverageRow* rows, const int32_t* entering, const int32_t* leaving,
                            RunningAverage* state, size_t frames);
#endif

template <bool first>
inline void RunAverage(AverageRow* rows, const int32_t* entering, const int32_t* leaving,
                       RunningAverage* state, size_t frames) {
#if defined(ORVANE_SOFTFLOAT_ASSEMBLY)
    (first ? SoftFirstAverage : SoftAverage)(rows, entering, leaving, state, frames);
#else
    RunAverageText<first>(rows, entering, leaving, state, frames);
#endif
}
