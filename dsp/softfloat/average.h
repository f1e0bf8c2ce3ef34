// One running average of the equalizer over a run of frames, and its band.
#pragma once
#include <cstddef>
#include <cstdint>

#include "dsp/softfloat/number.h"

struct AverageRow {
    SoftFloat average;  // in: the narrower average, out: this one
    SoftFloat output;   // the sum of the bands so far
};

struct RunningAverage {
    SoftFloat sum;
    SoftFactor gain;  // of the band between the narrower average and this one
    int32_t scale;    // the average is sum * 2^-scale
};

// Frame n: entering[n] joins the sum, the band joins the output (is it, where `first`), leaving[n]
// leaves the sum. At least one frame.
template <bool first>
inline void RunAverageText(AverageRow* rows, const SoftFloat* entering, const SoftFloat* leaving,
                           RunningAverage* state, size_t frames) {
    const auto [sum, gain, scale] = *state;
    SoftFloat running = sum;
    for (const AverageRow* const end = rows + frames; rows != end; ++rows) {
        running = running + *entering++;
        const SoftFloat average = {running.m, running.e - scale};
        const SoftFloat band = gain * (rows->average - average);
        rows->average = average;
        rows->output = first ? band : band + rows->output;
        running = running - *leaving++;
    }
    state->sum = running;
}

#if defined(ORVANE_SOFTFLOAT_ASSEMBLY)
extern "C" void SoftFirstAverage(AverageRow* rows, const SoftFloat* entering,
                                 const SoftFloat* leaving, RunningAverage* state, size_t frames);
extern "C" void SoftAverage(AverageRow* rows, const SoftFloat* entering, const SoftFloat* leaving,
                            RunningAverage* state, size_t frames);
#endif

template <bool first>
inline void RunAverage(AverageRow* rows, const SoftFloat* entering, const SoftFloat* leaving,
                       RunningAverage* state, size_t frames) {
#if defined(ORVANE_SOFTFLOAT_ASSEMBLY)
    (first ? SoftFirstAverage : SoftAverage)(rows, entering, leaving, state, frames);
#else
    RunAverageText<first>(rows, entering, leaving, state, frames);
#endif
}
