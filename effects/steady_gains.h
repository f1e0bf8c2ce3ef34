// The gains of a float limiter for one channel over many frames, for processors on which operations
// on floats are expensive. A peak stays for many frames. So the target is computed once per peak.
// One run smooths it over these frames, and another lets the gain recover.
#pragma once
#include <cstddef>
#include <cstdint>

// Samples, maxima and gains are `stride` apart. The state is the limiter's (limiter_runs.h).
// Allocates: never. Thread: no state of its own.
struct SteadyGains {
    // Computes `count` gains while the window may exceed the gate.
    void Limit(size_t count);
    // Computes `count` gains while nothing in the window exceeds the gate.
    void Rest(size_t count);

    const float* in;
    const float* maxima;
    float* gains;
    size_t stride;
    float gate;
    float& running;
    float& smoothed;
    float& gain;
    int32_t& age;

private:
    void Follow(size_t first, size_t end, float target);
    void Recover(size_t count);
};
