// Recurrences over a run of frames, alone or side by side. Each step of a recurrence waits for the
// one before; two that don't depend on each other share that time.
//
// A run is a struct with `Step(i)`, frame i of its arrays, whose few numbers stay in registers:
// it is copied for the loop, so that no store can reach them.
#pragma once
#include <cstddef>

#include "dsp/arm_state.h"
#include "dsp/inlining.h"
#include "dsp/softfloat/number.h"

template <typename Run>
ORVANE_ARM_STATE ORVANE_LANE_INLINE void RunAlone(Run& run, size_t count) {
    Run local = run;
    for (size_t i = 0; i < count; ++i) local.Step(i);
    run = local;
}

// Two of a kind that take the same frames, as one.
template <typename Run>
struct BothRuns {
    [[gnu::always_inline]] void Step(size_t i) {
        first.Step(i);
        second.Step(i);
    }
    Run first, second;
};

// Each over its own number of frames.
template <typename First, typename Second>
ORVANE_LANE_INLINE void RunTogether(First& first, size_t firstCount, Second& second,
                                    size_t secondCount) {
    if constexpr (kSoftFloat) {  // one instruction at a time: nothing to share
        RunAlone(first, firstCount);
        RunAlone(second, secondCount);
        return;
    }
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

// How a processor that is given one of these runs its recurrence, or says that it has none to run.
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
