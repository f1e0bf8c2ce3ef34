// Recurrences over a run of frames, alone or side by side. Each step of a recurrence waits for the
// one before; two that don't depend on each other share that time.
//
// A run is a struct with `Step(i)`, frame i of its arrays, whose few numbers stay in registers:
// it is copied for the loop, so that no store can reach them.
#pragma once
#include <cstddef>

template <typename Run>
[[gnu::always_inline]] inline void RunAlone(Run& run, size_t count) {
    Run local = run;
    for (size_t i = 0; i < count; ++i) local.Step(i);
    run = local;
}

// Each over its own number of frames.
template <typename First, typename Second>
[[gnu::always_inline]] inline void RunTogether(First& first, size_t firstCount, Second& second,
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
