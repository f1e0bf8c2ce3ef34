// The enhancer's sum of its bands with the contour added, on unpacked numbers (number.h): each
// value as floats give it, to the bit but for the signs of zeros.
//
// Allocates: never. Thread: no state.
#pragma once
#include <bit>
#include <cstddef>
#include <cstdint>

#include "dsp/biquad.h"
#include "dsp/softfloat/number.h"

// A filter that has no ramp, for as long as its history can be multiplied.
class UnpackedBiquad {
public:
    explicit UnpackedBiquad(const Biquad<float, float>& filter);
    bool Holds() const { return holds; }

    // The next output, or, with nothing changed but Holds, that it can't be told.
    [[gnu::always_inline]] bool Step(SoftFloat x, SoftFloat* y) {
        holds = softfloat::Settles(x, y1);
        if (!holds) return false;
        *y = b0 * x + b1 * x1 + b2 * x2 + fb1 * y1 + fb2 * y2;
        x2 = x1;
        x1 = x;
        y2 = y1;
        y1 = *y;
        return true;
    }
    // Its history becomes the filter's.
    void Keep(Biquad<float, float>* filter) const;

private:
    SoftFactor b0, b1, b2, fb1, fb2;
    SoftFloat x1, x2, y1, y2;
    bool holds;
};

struct BandWeights {
    float low, high, band;
};
// Of one channel at one frame.
struct BandSamples {
    float low, high, band;
};

// out[n * channels + c] = (high + band) + low of bands(n, c), times their weights, plus what the
// filter makes of the frame's sum over 1 or 2 channels. False, with the filter as it was, if a
// sample or a weight can't be held. A filter that can't be is run on floats.
template <typename Bands>
bool MixWithContour(Bands bands, const BandWeights& weights, Biquad<float, float>* filter,
                    float* out, size_t frames, size_t channels) {
    if (!softfloat::CanBeFactor(weights.low) || !softfloat::CanBeFactor(weights.high) ||
        !softfloat::CanBeFactor(weights.band))
        return false;
    const SoftFactor low = softfloat::FactorOf(weights.low),
                     high = softfloat::FactorOf(weights.high),
                     band = softfloat::FactorOf(weights.band);
    const auto packed = [](SoftFloat v) { return std::bit_cast<float>(softfloat::Pack(v)); };
    Biquad<float, float> plain = *filter;
    UnpackedBiquad unpacked(plain);
    bool onFloats = !unpacked.Holds();
    for (size_t n = 0; n < frames; ++n, out += channels) {
        SoftFloat mixed[2];
        for (size_t c = 0; c < channels; ++c) {
            const BandSamples samples = bands(n, c);
            const uint32_t bits[] = {std::bit_cast<uint32_t>(samples.low),
                                     std::bit_cast<uint32_t>(samples.high),
                                     std::bit_cast<uint32_t>(samples.band)};
            for (const uint32_t each : bits)
                if (!softfloat::Enters(each)) return false;
            mixed[c] = (high * softfloat::Unpack(bits[1]) + band * softfloat::Unpack(bits[2])) +
                       low * softfloat::Unpack(bits[0]);
        }
        const SoftFloat sum = channels == 1 ? mixed[0] : mixed[0] + mixed[1];
        SoftFloat contour;
        if (!onFloats && !unpacked.Step(sum, &contour)) {
            unpacked.Keep(&plain);
            onFloats = true;
        }
        if (onFloats) {
            const float added = plain.ProcessSample(packed(sum));
            for (size_t c = 0; c < channels; ++c) out[c] = packed(mixed[c]) + added;
        } else {
            for (size_t c = 0; c < channels; ++c) out[c] = packed(mixed[c] + contour);
        }
    }
    if (!onFloats) unpacked.Keep(&plain);
    *filter = plain;
    return true;
}
