// What the limiters of floats and of Q24 integers differ in: the numbers of one law.
//
//   smoothed target[n] = 0.8999 smoothed target[n-1] + 0.0999 target[n]     0.8999 = exp(-1 / 9.48)
//   recovered gain[n]  = 0.9999 gain[n-1] + 0.0001                          0.9999 = exp(-1 /
//   10000)
//
// The first two weights add up to 0.9998: a steady target of 1 becomes 0.0999 / 0.1001 = 0.998.
#pragma once
#include <cmath>
#include <cstdint>

#include "dsp/fixed_point.h"

struct FloatLimiting {
    using Sample = float;
    static constexpr float kUnity = 1.0F;
    static constexpr float kInitialGate = 0.9999F;

    static float Magnitude(float x) { return std::fabs(x); }
    // Of full scale; what isn't a number or is below 0 gives 0.
    static float Gate(float gate) { return gate >= 0 ? gate : 0.0F; }
    // gate / peak, 0 <= gate < peak.
    static float Target(float gate, float peak) { return gate / peak; }
    static float Apply(float x, float gain) { return x * gain; }
    static float Smooth(float smoothed, float target) {
        return smoothed * 0.8999F + target * 0.0999F;
    }
    static float Recover(float gain) { return gain * 0.9999F + 0.0001F; }
};

// Every product is rounded toward minus infinity by itself.
struct Q24Limiting {
    using Sample = int32_t;
    static constexpr int32_t kUnity = kQ24One;
    static constexpr int32_t kInitialGate = kQ24One - 1;

    static int32_t Magnitude(int32_t x) { return ::Magnitude(x); }
    static int32_t Gate(float gate) { return gate >= 0 ? ToQ24(static_cast<double>(gate)) : 0; }
    // Truncated; below 1, since the gate is below the peak.
    static int32_t Target(int32_t gate, int32_t peak) {
        return static_cast<int32_t>((static_cast<int64_t>(gate) << kQ24Bits) / peak);
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
};
