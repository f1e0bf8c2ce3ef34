#include "effects/steady_gains.h"

#include <bit>

#include "dsp/softfloat/limiter.h"
#include "effects/limiter_arithmetic.h"

void SteadyGains::Limit(size_t count) {
    for (size_t first = 0; first < count;) {
        running = FloatLimiting::Larger(FloatLimiting::Magnitude(*in), running);
        const float held = FloatLimiting::Larger(running, gate);
        const float peak = FloatLimiting::Larger(held, *maxima);
        const bool hangs = FloatLimiting::Greater(peak, held),
                   limiting = FloatLimiting::Greater(peak, gate);
        const size_t frames =
            SteadyFrames(in, hangs ? maxima : nullptr, stride, count - first, peak, &running);
        in += frames * stride;
        maxima += frames * stride;
        age = limiting ? age + static_cast<int32_t>(frames) : 0;
        Follow(first, first + frames, limiting ? gate / peak : FloatLimiting::kUnity);
        first += frames;
    }
    Recover(count);
}

void SteadyGains::Rest(size_t count) {
    Follow(0, count, FloatLimiting::kUnity);
    Recover(count);
}

// Writes the smoothed targets of frames `first` to `end` - 1 as gains.
void SteadyGains::Follow(size_t first, size_t end, float target) {
    const float taken = target * kLimiterTake;
    while (first < end) {
        const size_t done =
            RunSmoothing(gains + first * stride, stride, end - first, smoothed, taken);
        first += done;
        if (done > 0) smoothed = gains[(first - 1) * stride];
        if (first == end) break;
        smoothed = smoothed * kLimiterKeep + taken;
        gains[first++ * stride] = smoothed;
    }
}

// Turns the smoothed targets into gains.
void SteadyGains::Recover(size_t count) {
    for (size_t first = 0; first < count;) {
        const size_t done = RunRecovery(gains + first * stride, stride, count - first, gain);
        first += done;
        if (done > 0) gain = gains[(first - 1) * stride];
        if (first == count) break;
        float& next = gains[first++ * stride];
        const float recovered = FloatLimiting::Recover(gain);
        next = gain = next < recovered ? next : recovered;
    }
}
