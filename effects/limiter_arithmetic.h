// The arithmetic of the limiters, for floats and for Q24 integers. Both follow the same law:
//
//   smoothed target[n] = 0.8999 smoothed target[n-1] + 0.0999 target[n]
//   recovered gain[n]  = 0.9999 gain[n-1] + 0.0001
//
// 0.8999 = exp(-1 / 9.48), 0.9999 = exp(-1 / 10000).
//
// The first two weights add up to 0.9998, so a steady target of 1 becomes 0.0999 / 0.1001 = 0.998.
// V is the type of a sample or, for floats, a vector of samples.
#pragma once
#include <cstdint>
#include <type_traits>

#include "dsp/fixed_point.h"
#include "dsp/lanes.h"
#include "dsp/samples.h"
#include "dsp/softfloat/limiter.h"
#include "dsp/softfloat/samples.h"
#include "effects/limiter_runs.h"
#include "effects/steady_gains.h"

// Floats on processors with a floating-point unit.
struct PlainLimiting : LimiterLoops<PlainLimiting, float> {
    using Sample = float;
    static constexpr float kUnity = 1.0F;
    static constexpr float kInitialGate = 0.9999F;
    static constexpr bool kTakesVectors = kLanes > 1;

    // Returns the gate to store: 0 for NaN and for negative values.
    static float Gate(float gate) { return gate > 0 ? gate : 0.0F; }
    template <typename V>
    [[gnu::always_inline]] static V Magnitude(V x) {
        return Absolute(x);
    }
    // Returns a > b for magnitudes, lane by lane.
    template <typename V>
    [[gnu::always_inline]] static auto Greater(V a, V b) {
        return a > b;
    }
    [[gnu::always_inline]] static bool Greater(float a, float b) {
        return IsGreaterMagnitude(a, b);
    }
    // Returns the larger magnitude, or b if a is NaN.
    template <typename V>
    [[gnu::always_inline]] static V Larger(V a, V b) {
        return Greater(a, b) ? a : b;
    }
    // Returns |x| > gate, lane by lane.
    template <typename V>
    [[gnu::always_inline]] static auto Above(V x, V gate) {
        return Greater(Magnitude(x), gate);
    }
    static float Apply(float x, float gain) { return x * gain; }
    // Replaces gains[i] by Apply(x[i], gains[i]). A lane is a sample.
    static void ApplyRun(const float* x, float* gains, size_t count) {
        size_t i = 0;
        for (; count - i >= kLanes; i += kLanes) Store(gains + i, Load(x + i) * Load(gains + i));
        for (; i < count; ++i) gains[i] = Apply(x[i], gains[i]);
    }
    static void Shorten(const float* from, int16_t* to, size_t count) {
        FloatsToShorts(from, to, count);
    }
    template <typename V>
    static V Smooth(V smoothed, V target) {
        return smoothed * kLimiterKeep + target * kLimiterTake;
    }
    template <typename V>
    static V Recover(V gain) {
        return gain * kLimiterRecoverKeep + kLimiterRecoverStep;
    }
    // Returns gate / peak, where 0 <= gate < peak.
    template <typename V>
    struct Quotient {
        V operator()(V gate, V peak) { return gate / peak; }
    };
};

// Unpacked floats: the same law with other loops.
struct UnpackedLimiting : PlainLimiting {
    // Takes one channel after the other, and within it peak by peak.
    template <bool kLimiting, uint32_t kChannels, typename Runner>
    static void RunGains(const GainFrames<float>& frames, LimiterState<float, kChannels>& state,
                         uint32_t count, Runner runner) {
        for (uint32_t c = 0; c < kChannels; ++c) {
            SteadyGains run = {.in = frames.in + c,
                               .maxima = frames.maxima + c,
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
    static bool MakeShorts(const float* x, float* gains, float gate, int16_t* out, size_t count) {
        return ShortProducts(gate).MakeRun(x, gains, out, count) == count;
    }
};
using FloatLimiting = std::conditional_t<kSoftFloat, UnpackedLimiting, PlainLimiting>;

// Q24 integers. Every product is rounded toward minus infinity by itself.
struct Q24Limiting : LimiterLoops<Q24Limiting, int32_t> {
    using Sample = int32_t;
    static constexpr int32_t kUnity = kQ24One;
    static constexpr int32_t kInitialGate = kQ24One - 1;
    static constexpr bool kTakesVectors = false;

    static int32_t Gate(float gate) { return gate >= 0 ? ToQ24(static_cast<double>(gate)) : 0; }
    [[gnu::always_inline]] static int32_t Magnitude(int32_t x) { return ::Magnitude(x); }
    static bool Greater(int32_t a, int32_t b) { return a > b; }
    static int32_t Larger(int32_t a, int32_t b) { return a > b ? a : b; }
    // Returns |x| > gate. With the largest gate it is also true for the most negative x, although
    // its magnitude counts as equal to that gate.
    template <typename V>
    [[gnu::always_inline]] static auto Above(V x, V gate) {
        return (x > gate) | (x < -gate);
    }
    static int32_t Apply(int32_t x, int32_t gain) { return MulQ24(x, gain); }
    static void ApplyRun(const int32_t* x, int32_t* gains, size_t count) {
        MulQ24Run<0>(gains, x, count);
    }
    // Converts samples to 16 bits by dropping the nine bits that a 16-bit sample gained.
    static void Shorten(const int32_t* from, int16_t* to, size_t count) {
        size_t i = 0;
        for (; count - i >= 2 * kLanes; i += 2 * kLanes)
            StoreShorts(to + i, Load<IntLanes>(from + i) >> kSampleShift,
                        Load<IntLanes>(from + i + kLanes) >> kSampleShift);
        for (; i < count; ++i) to[i] = static_cast<int16_t>(from[i] >> kSampleShift);
    }
    // Those of LimiterLoops, or loops over single samples where there are no vectors.
    static bool AnyAbove(const int32_t* samples, size_t count, int32_t gate);
    static bool MakeShorts(const int32_t* x, int32_t* gains, int32_t gate, int16_t* out,
                           size_t count);
    static int32_t Smooth(int32_t smoothed, int32_t target) {
        constexpr int32_t kKeep = ToQ24(0.8999), kTake = ToQ24(0.0999);
        return WrapAdd(MulQ24(kKeep, smoothed), MulQ24(kTake, target));
    }
    static int32_t Recover(int32_t gain) {
        constexpr int32_t kKeep = ToQ24(0.9999), kStep = ToQ24(0.0001);
        return WrapAdd(kStep, MulQ24(kKeep, gain));
    }
    // Returns gate / peak, truncated; the result is below 1. A peak stays for many samples, so the
    // last quotient is kept.
    template <typename V>
    struct Quotient {
        int32_t operator()(int32_t gate, int32_t peak) {
            if (peak != lastPeak) {
                lastPeak = peak;
                last = QuotientQ24(gate, peak);
            }
            return last;
        }
        int32_t lastPeak = 0, last = 0;
    };
};
