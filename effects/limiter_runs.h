// The limiters' recurrences, for processors that run others beside them.
#pragma once
#include <cstring>
#include <type_traits>

#include "dsp/runs.h"
#include "effects/limiter_core.h"
#include "effects/steady_gains.h"

// Frame by frame, for as many channels as V has lanes, from `first` on: the window's peak, its
// target, the gain.
template <typename Arithmetic, uint32_t kChannels>
template <typename V>
struct LimiterCore<Arithmetic, kChannels>::GainRun {
    using Ages = typename VectorOf<int32_t, kWidth<V, Sample>>::Type;

    GainRun(const LimiterCore& core, size_t first, const Sample* samples, Sample* gainsOut)
        : in(samples + first),
          tails(core.tails + (core.InLap() + 1) * kChannels + first),
          gains(gainsOut + first),
          gate(Broadcast<V>(core.gate)),
          running(Load<V>(core.state.running + first)),
          recurrence{Load<V>(core.state.smoothed + first), Load<V>(core.state.gain + first)},
          age(Load<Ages>(core.state.age + first)) {}

    [[gnu::always_inline]] void Step(size_t i) {
        running = Arithmetic::Larger(Arithmetic::Magnitude(Load<V>(in + i * kChannels)), running);
        const V peak = Arithmetic::Larger(running, Load<V>(tails + i * kChannels));
        const auto limiting = Arithmetic::Greater(peak, gate);
        age = limiting ? age + 1 : Ages{};
        const V unity = Broadcast<V>(Arithmetic::kUnity);
        // A vector divides in every lane: where nothing exceeds the gate not by what may be 0.
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

// The same while nothing in the window exceeds the gate.
template <typename Arithmetic, uint32_t kChannels>
template <typename V>
struct LimiterCore<Arithmetic, kChannels>::RestRun : GainRun<V> {
    using GainRun<V>::GainRun;
    [[gnu::always_inline]] void Step(size_t i) {
        this->Follow(i, Broadcast<V>(Arithmetic::kUnity));
    }
};

template <typename Arithmetic, uint32_t kChannels>
template <typename Runner>
void LimiterCore<Arithmetic, kChannels>::ProcessChunk(Sample* samples, uint32_t count,
                                                      Runner runner) {
    if (count == 0) return runner();
    const size_t size = size_t{count} * kChannels;
    const State before = state;
    Sample output[kLap * kChannels];
    MakeGains(samples, count, output, runner);
    if (Multiply(count, output)) {
        Advance(samples, output, count);
    } else {
        state = before;
        for (size_t i = 0; i < size; i += kChannels) ProcessFrame(samples + i);
    }
}

// The gains of `count` frames that don't leave the lap; moves the state on.
template <typename Arithmetic, uint32_t kChannels>
template <typename Runner>
void LimiterCore<Arithmetic, kChannels>::MakeGains(const Sample* samples, uint32_t count,
                                                   Sample* gains, Runner runner) {
    if (Limiting()) {
        if (InLap() == 0) framesSinceGate < kWindow ? MakeWindow() : OpenLap();
        RunGains<GainRun>(samples, count, gains, runner);
    } else if (AnyAbove(samples, size_t{count} * kChannels)) {
        ForgetWindow();
        RunGains<GainRun>(samples, count, gains, runner);
    } else if (!Arithmetic::kInSteadyRuns && AtRest()) {
        for (uint32_t i = 0; i < count; ++i)
            std::memcpy(gains + i * kChannels, state.gain, sizeof state.gain);
        runner();
    } else {
        RunGains<RestRun>(samples, count, gains, runner);
    }
}

template <typename Arithmetic, uint32_t kChannels>
template <template <typename> typename Run, typename Runner>
void LimiterCore<Arithmetic, kChannels>::RunGains(const Sample* samples, uint32_t count,
                                                  Sample* gains, Runner runner) {
    if constexpr (Arithmetic::kInSteadyRuns) {
        for (uint32_t c = 0; c < kChannels; ++c) {
            SteadyGains run = {samples + c,
                               tails + (InLap() + 1) * kChannels + c,
                               gains + c,
                               kChannels,
                               gate,
                               state.running[c],
                               state.smoothed[c],
                               state.gain[c],
                               state.age[c]};
            std::is_same_v<Run<Sample>, RestRun<Sample>> ? run.Rest(count) : run.Limit(count);
        }
        runner();
    } else if constexpr (kChannels == 1 || Arithmetic::kTakesVectors) {
        Run<typename VectorOf<Sample, kChannels>::Type> all(*this, 0, samples, gains);
        runner(all, count);
        all.Keep(state, 0);
    } else {
        BothRuns<Run<Sample>> both = {{*this, 0, samples, gains}, {*this, 1, samples, gains}};
        runner(both, count);
        both.first.Keep(state, 0);
        both.second.Keep(state, 1);
    }
}

// One copy of what runs alone.
extern template void LimiterCore<FloatLimiting, 1>::ProcessChunk(float*, uint32_t, Alone);
extern template void LimiterCore<FloatLimiting, 2>::ProcessChunk(float*, uint32_t, Alone);
extern template void LimiterCore<Q24Limiting, 1>::ProcessChunk(int32_t*, uint32_t, Alone);
extern template void LimiterCore<Q24Limiting, 2>::ProcessChunk(int32_t*, uint32_t, Alone);
