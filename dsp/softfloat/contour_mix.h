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

// A filter that has no ramp, for as long as its history can be multiplied. The exponents of inputs
// and outputs are less than they mean by as much as the constants say, and the coefficients' are
// such that each product's is kAligned less than that of the sum which it joins.
class UnpackedBiquad {
public:
    static constexpr int32_t kInputLowered = 2 * softfloat::kAligned;
    static constexpr int32_t kOutputLowered = 3 * softfloat::kAligned;

    // False if the filter can't be held.
    bool Take(const Biquad<float, float>& filter);
    // The next output, or false, with nothing changed, if it can't be told.
    [[gnu::always_inline]] bool Step(SoftFloat x, SoftFloat* y) {
        if (!softfloat::Settles(x, y1)) return false;
        *y = b0 * x + AsLowered(b1 * x1) + AsLowered(b2 * x2) + AsLowered(fb1 * y1) +
             AsLowered(fb2 * y2);
        x2 = x1;
        x1 = x;
        y2 = y1;
        y1 = *y;
        return true;
    }
    // Its history becomes the filter's.
    void Keep(Biquad<float, float>* filter) const;

    SoftFactor b0, b1, b2, fb1, fb2;
    SoftFloat x1, x2, y1, y2;
};

struct BandWeights {
    float high, band, low;
};
// Of one channel: samples 2q at [0], samples 2q + 1 at [1].
struct BandSamples {
    const float *high[2], *band[2], *low[2];
};

// out[n * channels + c] = (high + band) + low of channel c at frame n, times their weights, plus
// what the filter makes of the frame's sum over 1 or 2 channels. False, with the filter as it was,
// if a sample or a weight can't be held. A filter that can't be is run on floats.
bool MixWithContour(const BandSamples* bands, const BandWeights& weights,
                    Biquad<float, float>* filter, float* out, size_t frames, size_t channels);

// What the loop works on.
struct ContourMix {
    static constexpr size_t kBands = 3;
    // High, band, low of each channel at even frames, behind them those at odd frames.
    const float* from[2 * kBands * 2];
    SoftFactor weights[kBands];  // each kAligned less than the one before
    UnpackedBiquad filter;
};

// One channel's sum at pair q, as the filter takes it; false if a sample can't be held.
[[gnu::always_inline]] inline bool MixBands(const float* const* from, size_t q,
                                            const SoftFactor* weights, SoftFloat* mixed) {
    SoftFloat terms[ContourMix::kBands];
    for (size_t i = 0; i < ContourMix::kBands; ++i) {
        const auto bits = std::bit_cast<uint32_t>(from[i][q]);
        if (!softfloat::Enters(bits)) return false;
        terms[i] = weights[i] * softfloat::Unpack(bits);
    }
    *mixed = (terms[0] + AsLowered(terms[1])) + AsLowered(terms[2]);
    return true;
}
inline SoftFloat SumOfChannels(const SoftFloat* mixed, size_t channels) {
    return channels == 1 ? mixed[0] : mixed[0] + mixed[1];
}

// The float that v is with an exponent that much larger.
[[gnu::always_inline]] inline float PackedRaised(SoftFloat v, int32_t more) {
    return std::bit_cast<float>(softfloat::Pack({v.m, v.e + more}));
}

// As MixWithContour, from frame 0 on. Returns the frames done before a sample or the filter can't
// be held.
inline size_t RunContourMixText(ContourMix* mix, float* out, size_t frames, size_t channels) {
    for (size_t n = 0; n < frames; ++n) {
        const float* const* const from = mix->from + n % 2 * ContourMix::kBands * channels;
        SoftFloat mixed[2], contour;
        for (size_t c = 0; c < channels; ++c)
            if (!MixBands(from + ContourMix::kBands * c, n / 2, mix->weights, &mixed[c])) return n;
        if (!mix->filter.Step(SumOfChannels(mixed, channels), &contour)) return n;
        for (size_t c = 0; c < channels; ++c)
            *out++ = PackedRaised(mixed[c] + AsLowered(contour), UnpackedBiquad::kOutputLowered);
    }
    return frames;
}

#if defined(ORVANE_SOFTFLOAT_ASSEMBLY)
extern "C" size_t SoftContourMix(ContourMix* mix, float* out, size_t frames, size_t channels);
static_assert(offsetof(ContourMix, weights) == 48 && offsetof(ContourMix, filter.b0) == 72 &&
              offsetof(ContourMix, filter.x1) == 112 && offsetof(ContourMix, filter.y2) == 136);
#endif

// At least one frame.
inline size_t RunContourMix(ContourMix* mix, float* out, size_t frames, size_t channels) {
#if defined(ORVANE_SOFTFLOAT_ASSEMBLY)
    return SoftContourMix(mix, out, frames, channels);
#else
    return RunContourMixText(mix, out, frames, channels);
#endif
}
