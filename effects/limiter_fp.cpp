#include "effects/limiter_fp.h"

#include <algorithm>
#include <iterator>

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
    for (uint32_t left = frames; left > 0;) {
        int32_t run[64];
        const uint32_t count = std::min<uint32_t>(left, std::size(run));
        for (size_t i = 0; i < count; ++i) run[i] = samples[i * stride];
        core.Process(run, count);
        for (size_t i = 0; i < count; ++i, samples += stride) *samples = run[i];
        left -= count;
    }
}
