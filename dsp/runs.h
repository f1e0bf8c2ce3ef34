// Recurrences over many frames, alone or interleaved. Each step of a recurrence waits for the
// result of the step before. Two independent recurrences in one loop hide each other's waiting
// time.
//
// A run is a struct with a function Step(i), which processes frame i of the struct's arrays. The
// loops below work on a local copy, so that its few numbers stay in registers. No store through the
// arrays can change a local copy.
#pragma once
#include <cstddef>

#include "dsp/code_generation.h"

template <typename Run>
ORVANE_ARM_STATE ORVANE_LANE_INLINE void RunAlone(Run& run, size_t count) {
    Run local = run;
    for (size_t i = 0; i < count; ++i) local.Step(i);
    run = local;
}

// Two runs of the same type over the same frames, as one run.
template <typename Run>
struct BothRuns {
    [[gnu::always_inline]] void Step(size_t i) {
        first.Step(i);
        second.Step(i);
    }
    Run first, second;
};

// Interleaves two runs, each over its own number of frames.
template <typename First, typename Second>
ORVANE_LANE_INLINE void RunTogether(First& first, size_t firstCount, Second& second,
                                    size_t secondCount) {
    First localFirst = first;
    Second localSecond = second;
    const size_t both = firstCount < secondCount ? firstCount : secondCount;
    size_t i = 0;
    for (; i < both; ++i) {
        localFirst.Step(i);
        localSecond.Step(i);
    }
    for (size_t n = i; n < firstCount; ++n) localFirst.Step(n);
    for (size_t n = i; n < secondCount; ++n) localSecond.Step(n);
    first = localFirst;
    second = localSecond;
}

// A runner, which a caller passes to a processor. The processor either calls it with its own run,
// or without arguments if it has no run. Alone runs just that run. Beside interleaves it with the
// run `other` over otherCount frames; without a run, it runs `other` alone.
struct Alone {
    void operator()() const {}
    template <typename Run>
    [[gnu::always_inline]] void operator()(Run& run, size_t count) const {
        RunAlone(run, count);
    }
};
template <typename Other>
struct Beside {
    void operator()() const { RunAlone(other, otherCount); }
    template <typename Run>
    [[gnu::always_inline]] void operator()(Run& run, size_t count) const {
        RunTogether(run, count, other, otherCount);
    }
    Other& other;
    size_t otherCount;
};
template <typename Other>
Beside(Other&, size_t) -> Beside<Other>;
