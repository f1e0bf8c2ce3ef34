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

// What the exponents of outputs are raised by, as numbers (number.h): the exponent field of a float
// is then at hand when a sum of them has been normalised.
inline constexpr int32_t kOutputRaised = 48;

// Sums of k samples, not divided by k: what an average lacks is a power of 2 and lies in the gains.
struct AverageRow {
    SoftFloat sum;     // in: of the narrower average, out: of this one, twice as wide
    SoftFloat output;  // the sum of the bands so far
};

struct RunningAverage {
    SoftFloat sum;
    SoftFactor gain;  // of the band between the narrower average and this one
};

// Frame n: entering[n] joins the sum, the band joins the output (is it, where `first`), leaving[n]
// leaves the sum. At least one frame.
template <bool first>
inline void RunAverageText(AverageRow* rows, const int32_t* entering, const int32_t* leaving,
                           RunningAverage* state, size_t frames) {
    const SoftFactor gain = state->gain;
    SoftFloat running = state->sum;
    for (const AverageRow* const end = rows + frames; rows != end; ++rows) {
        running = PlusSample(running, *entering++);
        const SoftFloat narrower = {rows->sum.m, rows->sum.e + 1};
        const SoftFloat band = gain * (narrower - running);
        rows->sum = running;
        rows->output = first ? band : band + rows->output;
        running = PlusSample(running, -*leaving++);
    }
    state->sum = running;
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
