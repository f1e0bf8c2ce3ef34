#include "effects/limiter.h"

#include <algorithm>
#include <cmath>
#include <iterator>

namespace {
constexpr float kSmoothKeep = 0.8999F;  // exp(-1 / 9.48): attack
// Short of the rest: a steady target becomes 0.0999 / 0.1001 = 0.998 of itself.
constexpr float kSmoothTake = 0.0999F;
constexpr float kReleaseKeep = 0.9999F;  // exp(-1 / 10000): release, toward 1
constexpr float kReleaseStep = 0.0001F;
}  // namespace

Limiter::Limiter() = default;

void Limiter::SetGate(float newGate) {
    gate = newGate >= 0 ? newGate : 0.0F;
    dividedPeak = 0;
}

void Limiter::Reset() {
    std::fill(std::begin(delayLine), std::end(delayLine), 0.0F);
    peakTree.Clear();
    writeIndex = 0;
    limiting = false;
    gain = 1.0F;
    smoothedTarget = 1.0F;
}

float Limiter::Process(float x) {
    const float magnitude = std::fabs(x);
    if (magnitude > gate && !limiting) {
        peakTree.Clear();
        limiting = true;
    }
    float target = 1.0F;
    if (limiting) {
        const float peak = peakTree.Insert(writeIndex, magnitude);
        if (gate >= peak) {
            limiting = false;
        } else {
            if (peak != dividedPeak) {
                dividedPeak = peak;
                peakTarget = gate / peak;
            }
            target = peakTarget;
        }
    }

    delayLine[writeIndex] = x;
    writeIndex = (writeIndex + 1) % kPeakWindow;
    const float delayed = delayLine[writeIndex];

    smoothedTarget = smoothedTarget * kSmoothKeep + target * kSmoothTake;
    float g = gain * kReleaseKeep + kReleaseStep;
    if (smoothedTarget < g) g = smoothedTarget;
    gain = g;
    float y = delayed * g;
    if (std::fabs(y) > gate) {
        gain = gate / std::fabs(delayed);
        y = delayed * gain;
    }
    return y;
}

void Limiter::Process(float* samples, uint32_t frames, uint32_t stride) {
    for (size_t n = 0; n < frames; ++n, samples += stride) *samples = Process(*samples);
}
