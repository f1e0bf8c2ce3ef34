// What the limiters of floats and of Q24 integers differ in: the numbers of one law.
//
//   smoothed target[n] = 0.8999 smoothed target[n-1] + 0.0999 target[n]
//   recovered gain[n]  = 0.9999 gain[n-1] + 0.0001
//
// 0.8999 = exp(-1 / 9.48), 0.9999 = exp(-1 / 10000).
//
// The first two weights add up to 0.9998: a steady target of 1 becomes 0.0999 / 0.1001 = 0.998.
// V: a sample's type or, for floats, a vector of them.
#pragma once
#include <bit>
#include <cstdint>
#include <type_traits>

#include "dsp/fixed_point.h"
#include "dsp/lanes.h"
#include "dsp/samples.h"
#include "dsp/softfloat/limiter.h"

// The law's two recurrences for one channel, or for as many as V has lanes.
template <typename Arithmetic, typename V>
struct GainRecurrence {
    // Follows a target; returns the gain.
    [[gnu::always_inline]] V Step(V target) {
        smoothed = Arithmetic::Smooth(smoothed, target);
        const V recovered = Arithmetic::Recover(gain);
        gain = smoothed < recovered ? smoothed : recovered;
        return gain;
    }
    V Smoothed() const { return smoothed; }
    V Gain() const { return gain; }

    V smoothed, gain;
};

// Floats, each operation an instruction.
struct PlainLimiting {
    using Sample = float;
    static constexpr float kUnity = 1.0F;
    static constexpr float kInitialGate = 0.9999F;
    static constexpr bool kTakesVectors = kLanes > 1;

    // What isn't a number or is below 0 gives 0.
    static float Gate(float gate) { return gate > 0 ? gate : 0.0F; }
    template <typename V>
    [[gnu::always_inline]] static V Magnitude(V x) {
        return Absolute(x);
    }
    // a > b, lane by lane, of magnitudes.
    template <typename V>
    [[gnu::always_inline]] static auto Greater(V a, V b) {
        return a > b;
    }
    [[gnu::always_inline]] static bool Greater(float a, float b) {
        return IsGreaterMagnitude(a, b);
    }
    // b if a isn't a number.
    template <typename V>
    [[gnu::always_inline]] static V Larger(V a, V b) {
        return Greater(a, b) ? a : b;
    }
    // |x| > gate, lane by lane.
    template <typename V>
    [[gnu::always_inline]] static auto Above(V x, V gate) {
        return Greater(Magnitude(x), gate);
    }
    static float Apply(float x, float gain) { return x * gain; }
    // gains[i] becomes Apply(x[i], gains[i]). Lanes: neighbours.
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
    // gate / peak, 0 <= gate < peak.
    template <typename V>
    struct Quotient {
        V operator()(V gate, V peak) { return gate / peak; }
    };
};

// Unpacked floats: the same law, other runs (limiter_runs.h).
struct UnpackedLimiting : PlainLimiting {};
using FloatLimiting = std::conditional_t<kSoftFloat, UnpackedLimiting, PlainLimiting>;

// gate * 2^24 / peak, 0 <= gate < peak, for processors that don't divide 64 bits: by the reciprocal
// of peak * 2^zeros, from 1/2 to 1, after Newton and Raphson. It begins with 48/17 - 32/17 d, at
// most 1/17 off, and each step squares that; a little less than it is, it leaves at most 1 to be
// added.
ORVANE_ARM_STATE inline int32_t ShortQuotient(int32_t gate, int32_t peak) {
    constexpr uint32_t kOnce = 3031741620, kTimes = 2021161080;  // 48/17 and 32/17 of 2^30
    constexpr uint32_t kTwo = 1U << 31U, kMargin = 4;
    const auto upper = [](uint32_t a, uint32_t b) {
        return static_cast<uint32_t>(uint64_t{a} * b >> 32U);
    };
    const auto divisor = static_cast<uint32_t>(peak), dividend = static_cast<uint32_t>(gate);
    const int zeros = std::countl_zero(divisor);
    const uint32_t d = divisor << zeros;
    uint32_t reciprocal = kOnce - upper(kTimes, d);  // of 2^30, as the products with d
    for (int step = 0; step < 3; ++step)
        reciprocal = upper(reciprocal, kTwo - upper(reciprocal, d)) << 2U;
    uint32_t quotient = upper(dividend << zeros, reciprocal - kMargin) >> 6U;
    const uint32_t rest = (dividend << static_cast<uint32_t>(kQ24Bits)) - quotient * divisor;
    quotient += static_cast<uint32_t>(rest >= divisor);
    return static_cast<int32_t>(quotient);
}

// Every product is rounded toward minus infinity by itself.
struct Q24Limiting {
    using Sample = int32_t;
    static constexpr int32_t kUnity = kQ24One;
    static constexpr int32_t kInitialGate = kQ24One - 1;
    static constexpr bool kTakesVectors = false;

    static int32_t Gate(float gate) { return gate >= 0 ? ToQ24(static_cast<double>(gate)) : 0; }
    [[gnu::always_inline]] static int32_t Magnitude(int32_t x) { return ::Magnitude(x); }
    static bool Greater(int32_t a, int32_t b) { return a > b; }
    static int32_t Larger(int32_t a, int32_t b) { return a > b ? a : b; }
    // |x| > gate, and with the largest gate also of the most negative x, whose magnitude equals it.
    template <typename V>
    [[gnu::always_inline]] static auto Above(V x, V gate) {
        return (x > gate) | (x < -gate);
    }
    static int32_t Apply(int32_t x, int32_t gain) { return MulQ24(x, gain); }
    static void ApplyRun(const int32_t* x, int32_t* gains, size_t count) {
        MulQ24Run<0>(gains, x, count);
    }
    // The 16 bits that a sample of 2^9 keeps.
    static void Shorten(const int32_t* from, int16_t* to, size_t count) {
        size_t i = 0;
        for (; count - i >= 2 * kLanes; i += 2 * kLanes)
            StoreShorts(to + i, Load<IntLanes>(from + i) >> kSampleShift,
                        Load<IntLanes>(from + i + kLanes) >> kSampleShift);
        for (; i < count; ++i) to[i] = static_cast<int16_t>(from[i] >> kSampleShift);
    }
    static int32_t Smooth(int32_t smoothed, int32_t target) {
        constexpr int32_t kKeep = ToQ24(0.8999), kTake = ToQ24(0.0999);
        return WrapAdd(MulQ24(kKeep, smoothed), MulQ24(kTake, target));
    }
    static int32_t Recover(int32_t gain) {
        constexpr int32_t kKeep = ToQ24(0.9999), kStep = ToQ24(0.0001);
        return WrapAdd(kStep, MulQ24(kKeep, gain));
    }
    // Truncated; below 1, since the gate is below the peak. A peak stays for many samples, so it is
    // divided by once.
    template <typename V>
    struct Quotient {
        int32_t operator()(int32_t gate, int32_t peak) {
            if (peak != lastPeak) {
                lastPeak = peak;
                last = kWideProducts
                           ? static_cast<int32_t>((static_cast<int64_t>(gate) << kQ24Bits) / peak)
                           : ShortQuotient(gate, peak);
            }
            return last;
        }
        int32_t lastPeak = 0, last = 0;
    };
};
