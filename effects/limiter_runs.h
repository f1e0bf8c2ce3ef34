// The limiters' recurrences over many frames: the window's peak, the target, the gain. They run
// alone or interleaved with another recurrence (dsp/runs.h).
#pragma once
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "dsp/runs.h"
#include "effects/limiter_arithmetic.h"
#include "effects/steady_gains.h"

// The state of a limiter between frames, for each channel.
template <typename Sample, uint32_t kChannels>
struct LimiterState {
    Sample running[kChannels] = {};  // the largest magnitude of this lap
    Sample smoothed[kChannels];      // smoothed target
    Sample gain[kChannels];          // applied to the delayed sample
    int32_t age[kChannels] = {};     // frames since limiting began, at most 256; 0: not limiting
};

// The arrays of interleaved frames of one lap. `in` and the tails (limiter_core.h) are read; the
// gains are written.
template <typename Sample>
struct GainFrames {
    const Sample* in;
    const Sample* tails;
    Sample* gains;
    Sample gate;
};

// The run while the window may exceed the gate, for as many channels as V has lanes, from `first`
// on.
template <typename Arithmetic, typename V, uint32_t kChannels>
struct GainRun {
    using Sample = typename Arithmetic::Sample;
    using State = LimiterState<Sample, kChannels>;
    using Ages = typename VectorOf<int32_t, kWidth<V, Sample>>::Type;

    GainRun(const GainFrames<Sample>& frames, const State& state, size_t first)
        : in(frames.in + first),
          tails(frames.tails + first),
          gains(frames.gains + first),
          gate(Broadcast<V>(frames.gate)),
          running(Load<V>(state.running + first)),
          recurrence{Load<V>(state.smoothed + first), Load<V>(state.gain + first)},
          age(Load<Ages>(state.age + first)) {}

    [[gnu::always_inline]] void Step(size_t i) {
        running = Arithmetic::Larger(Arithmetic::Magnitude(Load<V>(in + i * kChannels)), running);
        const V peak = Arithmetic::Larger(running, Load<V>(tails + i * kChannels));
        const auto limiting = Arithmetic::Greater(peak, gate);
        age = limiting ? age + 1 : Ages{};
        const V unity = Broadcast<V>(Arithmetic::kUnity);
        // A vector divides in every lane. A lane that isn't limiting divides by 1, because its peak
        // may be 0.
        if constexpr (!std::is_same_v<V, Sample>)
            Follow(i, limiting ? quotient(gate, limiting ? peak : unity) : unity);
        else
            Follow(i, limiting ? quotient(gate, peak) : unity);
    }
    [[gnu::always_inline]] void Follow(size_t i, V target) {
        Store(gains + i * kChannels, recurrence.Step(target));
    }
    void Keep(State& kept, size_t first) const {
        Store(kept.running + first, running);
        Store(kept.smoothed + first, recurrence.Smoothed());
        Store(kept.gain + first, recurrence.Gain());
        Store(kept.age + first, age);
    }

    const Sample* in;
    const Sample* tails;
    Sample* gains;
    V gate, running;
    GainRecurrence<Arithmetic, V> recurrence;
    Ages age;
    typename Arithmetic::template Quotient<V> quotient;
};

// The run while nothing in the window exceeds the gate.
template <typename Arithmetic, typename V, uint32_t kChannels>
struct RestRun : GainRun<Arithmetic, V, kChannels> {
    using GainRun<Arithmetic, V, kChannels>::GainRun;
    [[gnu::always_inline]] void Step(size_t i) {
        this->Follow(i, Broadcast<V>(Arithmetic::kUnity));
    }
};

// Computes the gains of `count` frames and moves the state on. kLimiting is true if the window may
// exceed the gate. Two channels share a vector, or are interleaved.
template <bool kLimiting, typename Arithmetic, uint32_t kChannels, typename Runner>
void RunGains(Arithmetic, const GainFrames<typename Arithmetic::Sample>& frames,
              LimiterState<typename Arithmetic::Sample, kChannels>& state, uint32_t count,
              Runner runner) {
    constexpr bool kTogether = kChannels == 1 || Arithmetic::kTakesVectors;
    using V = typename VectorOf<typename Arithmetic::Sample, kTogether ? kChannels : 1>::Type;
    using Run = std::conditional_t<kLimiting, GainRun<Arithmetic, V, kChannels>,
                                   RestRun<Arithmetic, V, kChannels>>;
    if constexpr (kTogether) {
        Run all(frames, state, 0);
        runner(all, count);
        all.Keep(state, 0);
    } else {
        BothRuns<Run> both = {{frames, state, 0}, {frames, state, 1}};
        runner(both, count);
        both.first.Keep(state, 0);
        both.second.Keep(state, 1);
    }
}
// The same for unpacked floats: one channel after the other, and within it peak by peak.
template <bool kLimiting, uint32_t kChannels, typename Runner>
void RunGains(UnpackedLimiting, const GainFrames<float>& frames,
              LimiterState<float, kChannels>& state, uint32_t count, Runner runner) {
    for (uint32_t c = 0; c < kChannels; ++c) {
        SteadyGains run = {.in = frames.in + c,
                           .tails = frames.tails + c,
                           .gains = frames.gains + c,
                           .stride = kChannels,
                           .gate = frames.gate,
                           .running = state.running[c],
                           .smoothed = state.smoothed[c],
                           .gain = state.gain[c],
                           .age = state.age[c]};
        kLimiting ? run.Limit(count) : run.Rest(count);
    }
    runner();
}
