#include "effects/limiter.h"

#include <algorithm>
#include <iterator>

Limiter::Limiter() = default;

void Limiter::SetGate(float newGate) {
    core.SetGate(newGate);
}

void Limiter::Reset() {
    core.Reset();
}

float Limiter::Process(float x) {
    core.ProcessFrame(&x);
    return x;
}

void Limiter::Process(float* samples, uint32_t frames, uint32_t stride) {
    for (uint32_t left = frames; left > 0;) {
        float run[64];
        const uint32_t count = std::min<uint32_t>(left, std::size(run));
        for (size_t i = 0; i < count; ++i) run[i] = samples[i * stride];
        core.Process(run, count);
        for (size_t i = 0; i < count; ++i, samples += stride) *samples = run[i];
        left -= count;
    }
}
