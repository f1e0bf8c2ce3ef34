#include "dsp/softfloat/contour_mix.h"

namespace {

// Makes a factor of v with its exponent raised by `more`. Returns false if v can't be a factor.
bool ToFactor(float v, int32_t more, SoftFactor* factor) {
    if (!softfloat::CanBeFactor(v)) return false;
    *factor = softfloat::FactorOf(v);
    factor->e += more;
    return true;
}
// Makes a number of v with its exponent lowered by `less`. Returns false if v can't enter.
bool ToNumber(float v, int32_t less, SoftFloat* number) {
    const auto bits = std::bit_cast<uint32_t>(v);
    if (!softfloat::Enters(bits)) return false;
    *number = softfloat::Unpack(bits);
    number->e -= less;
    return true;
}

}  // namespace

bool UnpackedBiquad::Take(const Biquad<float, float>& filter) {
    const auto& c = filter.coefficients;
    const auto& h = filter.history;
    constexpr int32_t kStep = softfloat::kAligned;
    // The first product's exponent is raised by one step; each following one is a step lower.
    return filter.rampRemaining == 0 && ToFactor(c.b0, kInputLowered + kStep, &b0) &&
           ToFactor(c.b1, kInputLowered, &b1) && ToFactor(c.b2, kInputLowered - kStep, &b2) &&
           ToFactor(c.fb1, kOutputLowered - 2 * kStep, &fb1) &&
           ToFactor(c.fb2, kOutputLowered - 3 * kStep, &fb2) &&
           ToNumber(h.x1, kInputLowered, &x1) && ToNumber(h.x2, kInputLowered, &x2) &&
           ToNumber(h.y1, kOutputLowered, &y1) && ToNumber(h.y2, kOutputLowered, &y2);
}

void UnpackedBiquad::Keep(Biquad<float, float>* filter) const {
    filter->history = {PackedRaised(x1, kInputLowered), PackedRaised(x2, kInputLowered),
                       PackedRaised(y1, kOutputLowered), PackedRaised(y2, kOutputLowered)};
}

bool MixWithContour(const BandSamples* bands, const BandWeights<float>& weights,
                    Biquad<float, float>* filter, float* out, size_t frames, size_t channels) {
    ContourMix mix;
    constexpr int32_t kStep = softfloat::kAligned;
    if (!ToFactor(weights.high, 0, &mix.weights[0]) ||
        !ToFactor(weights.band, -kStep, &mix.weights[1]) ||
        !ToFactor(weights.low, -2 * kStep, &mix.weights[2]))
        return false;
    const float** from = mix.from;
    for (size_t odd = 0; odd < 2; ++odd)
        for (size_t c = 0; c < channels; ++c)
            for (const Planar<const float>& band : {bands[c].high, bands[c].band, bands[c].low})
                *from++ = odd == 0 ? band.re : band.im;
    Biquad<float, float> plain = *filter;
    size_t n = 0;
    if (mix.filter.Take(plain)) {
        n = RunContourMix(&mix, out, frames, channels);
        mix.filter.Keep(&plain);
    }
    for (; n < frames; ++n) {
        SoftFloat mixed[2];
        for (size_t c = 0; c < channels; ++c)
            if (!MixBands(mix.from + ContourMix::kBands * (n % 2 * channels + c), n / 2,
                          mix.weights, &mixed[c]))
                return false;
        const auto packed = [](SoftFloat v) {
            return PackedRaised(v, UnpackedBiquad::kInputLowered);
        };
        const float added = plain.ProcessSample(packed(SumOfChannels(mixed, channels)));
        for (size_t c = 0; c < channels; ++c) out[n * channels + c] = packed(mixed[c]) + added;
    }
    *filter = plain;
    return true;
}
