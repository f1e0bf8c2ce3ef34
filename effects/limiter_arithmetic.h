// What the limiters of floats and of Q24 integers differ in: the numbers of one law.
//
//   smoothed target[n] = 0.8999 smoothed target[n-1] + 0.0999 target[n]     0.8999 = exp(-1 / 9.48)
//   recovered gain[n]  = 0.9999 gain[n-1] + 0.0001                          0.9999 = exp(-1 /
//   10000)
//
// The first two weights add up to 0.9998: a steady target of 1 becomes 0.0999 / 0.1001 = 0.998.
// V: a sample's type or, for floats, a vector of them.
#pragma once
#include <cstdint>

#include "dsp/fixed_point.h"
#include "dsp/lanes.h"

struct FloatLimiting {
    using Sample = float;
    static constexpr float kUnity = 1.0F;
    static constexpr float kInitialGate = 0.9999F;
    static constexpr bool kTakesVectors = kLanes > 1;

    // What isn't a number or is below 0 gives 0.
    static float Gate(float gate) { return gate >= 0 ? gate : 0.0F; }
    template <typename V>
    [[gnu::always_inline]] static V Magnitude(V x) {
        return Absolute(x);
    }
    // |x| > gate, lane by lane.
    template <typename V>
    [[gnu::always_inline]] static auto Above(V x, V gate) {
        return Magnitude(x) > gate;
    }
    template <typename V>
    static V Apply(V x, V gain) {
        return x * gain;
    }
    template <typename V>
    static V Smooth(V smoothed, V target) {
        return smoothed * 0.8999F + target * 0.0999F;
    }
    template <typename V>
    static V Recover(V gain) {
        return gain * 0.9999F + 0.0001F;
    }
    // gate / peak, 0 <= gate < peak.
    template <typename V>
    struct Quotient {
        V operator()(V gate, V peak) const { return gate / peak; }
    };
};

// Every product is rounded toward minus infinity by itself.
struct Q24Limiting {
    using Sample = int32_t;
    static constexpr int32_t kUnity = kQ24One;
    static constexpr int32_t kInitialGate = kQ24One - 1;
    static constexpr bool kTakesVectors = false;

    static int32_t Gate(float gate) { return gate >= 0 ? ToQ24(static_cast<double>(gate)) : 0; }
    static int32_t Magnitude(int32_t x) { return ::Magnitude(x); }
    // |x| > gate, and with the largest gate also of the most negative x, whose magnitude equals it.
    static bool Above(int32_t x, int32_t gate) {
        return static_cast<bool>((x > gate) | (x < -gate));
    }
    static int32_t Apply(int32_t x, int32_t gain) { return MulQ24(x, gain); }
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
                last = static_cast<int32_t>((static_cast<int64_t>(gate) << kQ24Bits) / peak);
            }
            return last;
        }
        int32_t lastPeak = 0, last = 0;
    };
};
