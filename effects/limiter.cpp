#include "effects/limiter.h"

#include <algorithm>
#include <cmath>
#include <iterator>

namespace {
constexpr float kSmoothKeep = 0.8999F;
constexpr float kSmoothTake = 0.0999F;
constexpr float kReleaseKeep = 0.9999F;
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
    float target = unityGain;
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
