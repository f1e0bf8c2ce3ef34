#include "effects/limiter.h"

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
    ProcessStrided(core, samples, frames, stride);
}
