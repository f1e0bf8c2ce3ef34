#include "effects/limiter.h"

#include <algorithm>
#include <iterator>

namespace {

// Processes one channel in place, chunk by chunk. Its samples are `stride` apart.
template <typename Arithmetic>
void ProcessStrided(LimiterCore<Arithmetic, 1>& core, typename Arithmetic::Sample* samples,
                    uint32_t frames, uint32_t stride) {
    typename Arithmetic::Sample run[kChunkFrames];
    for (uint32_t left = frames; left > 0;) {
        const uint32_t count = std::min<uint32_t>(left, std::size(run));
        for (size_t i = 0; i < count; ++i) run[i] = samples[i * stride];
        core.Process(run, count);
        for (size_t i = 0; i < count; ++i, samples += stride) *samples = run[i];
        left -= count;
    }
}

}  // namespace

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
