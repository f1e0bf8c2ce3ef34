// The limiters' loops over many frames. The recurrences (the window's peak, the target, the gain)
// run alone or interleaved with another recurrence (dsp/runs.h). `Arithmetic` is one of
// limiter_arithmetic.h.
#pragma once
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "dsp/code_generation.h"
#include "dsp/lanes.h"
#include "dsp/runs.h"

// The state of a limiter between frames, for each channel.
template <typename Sample, uint32_t kChannels>
struct LimiterState {
    Sample running[kChannels] = {};  // the largest magnitude of this lap
    Sample smoothed[kChannels];      // smoothed target
    Sample gain[kChannels];          // applied to the delayed sample
    int32_t age[kChannels] = {};     // frames since limiting began, at most 256; 0: not limiting
};

// The arrays of interleaved frames of one lap. `in` and the maxima (limiter_core.h) are read; the
// gains are written.
template <typename Sample>
struct GainFrames {
    const Sample* in;
    const Sample* maxima;
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
          maxima(frames.maxima + first),
          gains(frames.gains + first),
          gate(Broadcast<V>(frames.gate)),
          running(Load<V>(state.running + first)),
          smoothed(Load<V>(state.smoothed + first)),
          gain(Load<V>(state.gain + first)),
          age(Load<Ages>(state.age + first)) {}

    [[gnu::always_inline]] void Step(size_t i) {
        running = Arithmetic::Larger(Arithmetic::Magnitude(Load<V>(in + i * kChannels)), running);
        const V peak = Arithmetic::Larger(running, Load<V>(maxima + i * kChannels));
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
    // Moves the law's two recurrences on by one frame.
    [[gnu::always_inline]] void Follow(size_t i, V target) {
        smoothed = Arithmetic::Smooth(smoothed, target);
        const V recovered = Arithmetic::Recover(gain);
        gain = smoothed < recovered ? smoothed : recovered;
        Store(gains + i * kChannels, gain);
    }
    void Keep(State& kept, size_t first) const {
        Store(kept.running + first, running);
        Store(kept.smoothed + first, smoothed);
        Store(kept.gain + first, gain);
        Store(kept.age + first, age);
    }

    const Sample* in;
    const Sample* maxima;
    Sample* gains;
    V gate, running, smoothed, gain;
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

// The loops of a limiter. An arithmetic inherits them, and replaces those that it does otherwise.
template <typename Arithmetic, typename Sample>
struct LimiterLoops {
    // Computes the gains of `count` frames and moves the state on. kLimiting is true if the window
    // may exceed the gate. Two channels share a vector, or are interleaved.
    template <bool kLimiting, uint32_t kChannels, typename Runner>
    static void RunGains(const GainFrames<Sample>& frames, LimiterState<Sample, kChannels>& state,
                         uint32_t count, Runner runner) {
        constexpr bool kTogether = kChannels == 1 || Arithmetic::kTakesVectors;
        using V = typename VectorOf<Sample, kTogether ? kChannels : 1>::Type;
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
    // Returns true if any sample's magnitude exceeds the gate. A lane is a sample.
    ORVANE_ARM_STATE static bool AnyAbove(const Sample* samples, size_t count, Sample gate) {
        using V = typename VectorOf<Sample, kLanes>::Type;
        const V gates = Broadcast<V>(gate);
        auto above = Arithmetic::Above(V{}, gates);
        size_t i = 0;
        for (; count - i >= kLanes; i += kLanes)
            above = above | Arithmetic::Above(Load<V>(samples + i), gates);
        bool any = AnyLane(above);
        for (; i < count; ++i) any = any | Arithmetic::Above(samples[i], gate);
        return any;
    }
    // Writes samples times gains as 16 bits; overwrites the gains. Returns false if a product
    // exceeds the gate.
    static bool MakeShorts(const Sample* x, Sample* gains, Sample gate, int16_t* out,
                           size_t count) {
        Arithmetic::ApplyRun(x, gains, count);
        if (Arithmetic::AnyAbove(gains, count, gate)) return false;
        Arithmetic::Shorten(gains, out, count);
        return true;
    }
};
