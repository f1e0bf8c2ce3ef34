#include "dsp/softfloat/contour_mix.h"

namespace {

float Packed(SoftFloat v) {
    return std::bit_cast<float>(softfloat::Pack(v));
}

// False if it can't be one.
bool ToFactor(float v, SoftFactor* factor) {
    if (!softfloat::CanBeFactor(v)) return false;
    *factor = softfloat::FactorOf(v);
    return true;
}
bool ToNumber(float v, SoftFloat* number) {
    const auto bits = std::bit_cast<uint32_t>(v);
    if (!softfloat::Enters(bits)) return false;
    *number = softfloat::Unpack(bits);
    return true;
}

}  // namespace

bool UnpackedBiquad::Take(const Biquad<float, float>& filter) {
    const auto& c = filter.coefficients;
    const auto& h = filter.history;
    return filter.rampRemaining == 0 && ToFactor(c.b0, &b0) && ToFactor(c.b1, &b1) &&
           ToFactor(c.b2, &b2) && ToFactor(c.fb1, &fb1) && ToFactor(c.fb2, &fb2) &&
           ToNumber(h.x1, &x1) && ToNumber(h.x2, &x2) && ToNumber(h.y1, &y1) && ToNumber(h.y2, &y2);
}

void UnpackedBiquad::Keep(Biquad<float, float>* filter) const {
    filter->history = {Packed(x1), Packed(x2), Packed(y1), Packed(y2)};
}

bool MixWithContour(const BandSamples* bands, const BandWeights& weights,
                    Biquad<float, float>* filter, float* out, size_t frames, size_t channels) {
    ContourMix mix;
    if (!ToFactor(weights.high, &mix.weights[0]) || !ToFactor(weights.band, &mix.weights[1]) ||
        !ToFactor(weights.low, &mix.weights[2]))
        return false;
    const float** from = mix.from;
    for (size_t odd = 0; odd < 2; ++odd)
        for (size_t c = 0; c < channels; ++c) {
            *from++ = bands[c].high[odd];
            *from++ = bands[c].band[odd];
            *from++ = bands[c].low[odd];
        }
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
        const float added = plain.ProcessSample(Packed(SumOfChannels(mixed, channels)));
        for (size_t c = 0; c < channels; ++c) out[n * channels + c] = Packed(mixed[c]) + added;
    }
    *filter = plain;
    return true;
}
