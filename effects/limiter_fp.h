// Peak limiter with look-ahead for one channel, fixed point: the integer sibling of Limiter, on
// Q24 samples (1.0 is 2^24).
//
// Delay: 255 samples. Allocates: never. Thread: no lock of its own; the owner serialises all calls.
#pragma once
#include <cstdint>

#include "effects/limiter_core.h"
#include "platform/export.h"

class ORVANE_API Limiter_FP {
public:
    // Gate one step below 1.0.
    Limiter_FP();

    // Largest output magnitude, full scale 1.0, stored rounded to Q24; 0 silences. Below 0 or not a
    // number counts as 0, 128 and above as the largest Q24 value.
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
