// The enhancer's weighted sum of its bands, with the contour added, in unpacked floats (number.h).
// Each value has the bits that floats give, but for the signs of zeros.
//
// Allocates: never. Thread: no state.
#pragma once
#include <bit>
#include <cstddef>
#include <cstdint>

#include "dsp/biquad.h"
#include "dsp/planar.h"
#include "dsp/softfloat/number.h"
#include "dsp/softfloat/offsets.h"

// The contour's filter, without a ramp, in unpacked floats. The exponents of inputs and outputs are
// lowered by the two constants. The coefficients' exponents are chosen so that each product's
// exponent is kAligned lower than that of the sum to which it is added.
class UnpackedBiquad {
public:
    static constexpr int32_t kInputLowered = 2 * softfloat::kAligned;
    static constexpr int32_t kOutputLowered = 3 * softfloat::kAligned;

    // Copies the filter. Returns false if unpacked floats can't hold it, or if it has a ramp.
    bool Take(const Biquad<float, float>& filter);
    // Computes the next output. Returns false, with the filter unchanged, if a product might be
    // subnormal.
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
    // Copies the history back to the filter.
    void Keep(Biquad<float, float>* filter) const;

    SoftFactor b0, b1, b2, fb1, fb2;
    SoftFloat x1, x2, y1, y2;
};

// The gains with which a frame's bands are added.
template <typename Real>
struct BandWeights {
    Real high, band, low;
};
// The bands of one channel, as planar pairs of samples.
struct BandSamples {
    Planar<const float> high, band, low;
};

// Writes interleaved frames. out[n * channels + c] is the weighted (high + band) + low of channel c
// at frame n, plus the filter's output. The filter's input is the frame's sum over its 1 or 2
// channels. Returns false, with the filter unchanged, if unpacked floats can't hold a sample or a
// weight. A filter that they can't hold runs on floats.
bool MixWithContour(const BandSamples* bands, const BandWeights<float>& weights,
                    Biquad<float, float>* filter, float* out, size_t frames, size_t channels);

// The state of the loop. Assembly reads it: see offsets.h.
struct ContourMix {
    static constexpr size_t kBands = 3;
    // Even frames: high, band, low of each channel. Then the same for odd frames.
    const float* from[2 * kBands * 2];
    SoftFactor weights[kBands];  // each exponent is kAligned lower than the previous one
    UnpackedBiquad filter;
};

// Computes one channel's weighted sum at pair q, lowered as the filter's input. Returns false if a
// sample can't be held.
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

// Returns v * 2^more as a float.
[[gnu::always_inline]] inline float PackedRaised(SoftFloat v, int32_t more) {
    return std::bit_cast<float>(softfloat::Pack({v.m, v.e + more}));
}

// Does the work of MixWithContour from frame 0 on. Returns the number of frames before the first
// one for which a sample or the filter can't be held. The definition of RunContourMix.
inline size_t RunContourMixPortable(ContourMix* mix, float* out, size_t frames, size_t channels) {
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

// RunContourMix is the assembly version where there is one. frames >= 1.
#if defined(ORVANE_SOFTFLOAT_ASSEMBLY)
extern "C" size_t SoftContourMix(ContourMix* mix, float* out, size_t frames, size_t channels);
static_assert(offsetof(ContourMix, from) == 0 && sizeof(SoftFactor) == 8 &&
              offsetof(ContourMix, weights) == CONTOUR_MIX_WEIGHTS &&
              offsetof(ContourMix, filter.b0) == CONTOUR_MIX_B0 &&
              offsetof(ContourMix, filter.b1) == CONTOUR_MIX_B1 &&
              offsetof(ContourMix, filter.b2) == CONTOUR_MIX_B2 &&
              offsetof(ContourMix, filter.fb1) == CONTOUR_MIX_FB1 &&
              offsetof(ContourMix, filter.fb2) == CONTOUR_MIX_FB2 &&
              offsetof(ContourMix, filter.x1) == CONTOUR_MIX_X1 &&
              offsetof(ContourMix, filter.x2) == CONTOUR_MIX_X2 &&
              offsetof(ContourMix, filter.y1) == CONTOUR_MIX_Y1 &&
              offsetof(ContourMix, filter.y2) == CONTOUR_MIX_Y2);
inline constexpr auto& RunContourMix = SoftContourMix;
#else
inline constexpr auto& RunContourMix = RunContourMixPortable;
#endif
