#include "effects/limiter_fp.h"

Limiter_FP::Limiter_FP() = default;

void Limiter_FP::SetGate(float newGate) {
    core.SetGate(newGate);
}

void Limiter_FP::Reset() {
    core.Reset();
}

int32_t Limiter_FP::Process(int32_t x) {
    core.ProcessFrame(&x);
    return x;
}

void Limiter_FP::Process(int32_t* samples, uint32_t frames, uint32_t stride) {
    ProcessStrided(core, samples, frames, stride);
}
