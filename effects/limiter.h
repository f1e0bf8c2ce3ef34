// Peak limiter with look-ahead for one channel, floating point: delays the signal by 255 samples
// and lowers the gain before a peak arrives.
//
// The newest 256 samples lie in a ring. While any of them exceeds the gate, a max-tree over the
// ring gives the largest magnitude, and the target gain is gate / peak; otherwise it is 1. The
// target is smoothed by a one-pole filter (it falls to 1/e of its way in 9.5 samples), the gain
// recovers slowly toward 1 (to 1/e in 10,000 samples) but never exceeds the smoothed target, and a
// last check lowers it so that no output exceeds the gate by more than one rounding. At rest the
// gain settles at 0.9980025, because the smoothing weights add up to 0.9998.
//
// Delay: 255 samples. Allocates: never. Thread: no lock of its own; the owner serialises all calls.
#pragma once
#include <cstdint>

#include "effects/limiter_core.h"
#include "platform/export.h"

class ORVANE_API Limiter {
public:
    // Gate 0.9999.
    Limiter();

    // Largest output magnitude, full scale 1.0; 0 silences. Below 0 or not a number counts as 0.
    void SetGate(float newGate);

    // Forgets the history, as newly made; keeps the gate.
    void Reset();

    float Process(float x);
    // In place: `frames` samples of the channel that lie `stride` apart.
    void Process(float* samples, uint32_t frames, uint32_t stride);

private:
    LimiterCore<FloatLimiting, 1> core;
};
