#include "effects/limiter_fp.h"

#include <algorithm>
#include <iterator>

namespace {

// As in Limiter.
constexpr int32_t kSmoothKeep = ToQ24(0.8999);
constexpr int32_t kSmoothTake = ToQ24(0.0999);
constexpr int32_t kReleaseKeep = ToQ24(0.9999);
constexpr int32_t kReleaseStep = ToQ24(0.0001);

// a / b in Q24, truncated; 0 <= a < b, so the quotient is below 1.
int32_t QuotientQ24(int32_t a, int32_t b) {
    return static_cast<int32_t>((static_cast<int64_t>(a) << kQ24Bits) / b);
}

}  // namespace

Limiter_FP::Limiter_FP() = default;

void Limiter_FP::SetGate(float newGate) {
    gate = newGate >= 0 ? ToQ24(static_cast<double>(newGate)) : 0;
    dividedPeak = 0;
}

void Limiter_FP::Reset() {
    std::fill(std::begin(delayLine), std::end(delayLine), 0);
    peakTree.Clear();
    writeIndex = 0;
    limiting = false;
    gain = kQ24One;
    smoothedTarget = kQ24One;
}

int32_t Limiter_FP::Process(int32_t x) {
    const int32_t magnitude = Magnitude(x);
    if (magnitude > gate && !limiting) {
        peakTree.Clear();
        limiting = true;
    }
    int32_t target = kQ24One;
    if (limiting) {
        const int32_t peak = peakTree.Insert(writeIndex, magnitude);
        if (gate >= peak) {
            limiting = false;
        } else {
            if (peak != dividedPeak) {
                dividedPeak = peak;
                peakTarget = QuotientQ24(gate, peak);
            }
            target = peakTarget;
        }
    }

    delayLine[writeIndex] = x;
    writeIndex = (writeIndex + 1) % kPeakWindow;
    const int32_t delayed = delayLine[writeIndex];

    smoothedTarget = WrapAdd(MulQ24(kSmoothKeep, smoothedTarget), MulQ24(kSmoothTake, target));
    int32_t g = WrapAdd(kReleaseStep, MulQ24(kReleaseKeep, gain));
    if (smoothedTarget < g) g = smoothedTarget;
    gain = g;
    int32_t y = MulQ24(delayed, g);
    if (Magnitude(y) > gate) {
        gain = QuotientQ24(gate, Magnitude(delayed));
        y = MulQ24(delayed, gain);
    }
    return y;
}

void Limiter_FP::Process(int32_t* samples, uint32_t frames, uint32_t stride) {
    for (size_t n = 0; n < frames; ++n, samples += stride) *samples = Process(*samples);
}
