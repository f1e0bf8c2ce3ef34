// A limiter's gains of floats for one channel over a run of frames, where every operation of floats
// is dear: a peak stays for many frames, so the target is divided for once and followed in one run,
// and then the gain recovers in another.
#pragma once
#include <cstddef>
#include <cstdint>

// Samples, tails and gains lie `stride` apart; the state is the limiter's (limiter_core.h).
// Allocates: never. Thread: no state of its own.
struct SteadyGains {
    void Limit(size_t count);
    // While nothing in the window exceeds the gate.
    void Rest(size_t count);

    const float* in;
    const float* tails;
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
