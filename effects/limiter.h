// Peak limiters with look-ahead for one channel: they delay the signal by 255 samples and lower the
// gain before a peak arrives.
//
// The newest 256 samples lie in a ring. While any of them exceeds the gate, the largest magnitude
// in the ring is the peak, and the target gain is gate / peak; otherwise the target is 1. The
// target is smoothed by a one-pole filter (it falls to 1/e of its way in 9.5 samples). The gain
// recovers slowly toward 1 (to 1/e in 10,000 samples) but never exceeds the smoothed target, and a
// last check lowers it so that no output exceeds the gate by more than one rounding. At rest the
// gain settles at 0.9980025, because the smoothing weights add up to 0.9998.
//
// Delay: 255 samples. Allocates: never. Thread: no lock of its own; the owner serialises all calls.
#pragma once
#include <cstdint>

#include "effects/limiter_core.h"
#include "platform/export.h"

// Floating point, full scale 1.0.
class ORVANE_API Limiter {
public:
    // Gate 0.9999.
    Limiter();

    // Largest output magnitude; 0 silences. A gate below 0 or not a number counts as 0.
    void SetGate(float newGate);

    // Forgets the history, as newly made; keeps the gate.
    void Reset();

    float Process(float x);
    // In place: `frames` samples of the channel that lie `stride` apart.
    void Process(float* samples, uint32_t frames, uint32_t stride);

private:
    LimiterCore<FloatLimiting, 1> core;
};

// Fixed point: Q24 samples, 1.0 is 2^24.
class ORVANE_API Limiter_FP {
public:
    // Gate one step below 1.0.
    Limiter_FP();

    // As Limiter's, stored rounded to Q24; 128 and above count as the largest Q24 value.
    void SetGate(float newGate);

    // Forgets the history, as newly made; keeps the gate.
    void Reset();

    // The magnitude of the most negative sample counts as the most positive value.
    int32_t Process(int32_t x);
    // In place: `frames` samples of the channel that lie `stride` apart.
    void Process(int32_t* samples, uint32_t frames, uint32_t stride);

private:
    LimiterCore<Q24Limiting, 1> core;
};
