// Look-ahead peak limiters for one channel. They delay the signal by 255 samples (5.8 ms at 44.1
// kHz), so that the gain is lowered before a peak arrives.
//
// The newest 256 samples are the window. If any of them exceeds the gate, the largest magnitude in
// the window is the peak and the target gain is gate / peak. Otherwise the target is 1. A one-pole
// filter smooths the target (it covers all but 1/e of the way in 9.5 samples). The gain recovers
// slowly toward 1 (all but 1/e in 10,000 samples) but never exceeds the smoothed target. A last
// check lowers the gain so that no output exceeds the gate by more than one rounding. At rest the
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
    // The gate of a new limiter is 0.9999.
    Limiter();

    // Sets the largest output magnitude; 0 silences. A negative gate or NaN counts as 0.
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
    // The gate of a new limiter is one step below 1.0.
    Limiter_FP();

    // Like Limiter::SetGate. The gate is rounded to Q24; 128 and above become the largest Q24
    // value.
    void SetGate(float newGate);

    // Forgets the history, as newly made; keeps the gate.
    void Reset();

    // Returns the output for one sample. The magnitude of the most negative sample counts as the
    // most positive value.
    int32_t Process(int32_t x);
    // In place: `frames` samples of the channel that lie `stride` apart.
    void Process(int32_t* samples, uint32_t frames, uint32_t stride);

private:
    LimiterCore<Q24Limiting, 1> core;
};
