// The enhancer's steps around its filters. They lead from interleaved frames to planar pairs, from
// the three bands to their weighted sum, and from that sum to the contour's filter and back.
#pragma once
#include <array>
#include <cstddef>

#include "dsp/code_generation.h"
#include "dsp/lanes.h"
#include "dsp/planar.h"
#include "dsp/softfloat/contour_mix.h"

// Returns a value as the buffers between the steps hold it: rounded to float.
template <typename V>
[[gnu::always_inline]] inline V Held(V v) {
    return v;
}
[[gnu::always_inline]] inline double Held(double v) {
    const volatile float held = static_cast<float>(v);  // gcc 12 drops a vector's two conversions
    return held;
}

// The bands of one channel, each delayed by its own amount, and their weights.
template <typename Real>
struct DelayedBands {
    // Returns the weighted sum at pair q and the following ones, one in each lane.
    template <typename V>
    ORVANE_LANE_INLINE Complex<V> Mix(size_t q) const {
        const Complex<V> h = LoadAt<V>(high, q), b = LoadAt<V>(band, q), l = LoadAt<V>(low, q);
        return {Sum(h.re, b.re, l.re), Sum(h.im, b.im, l.im)};
    }
    template <typename V>
    [[gnu::always_inline]] V Sum(V ofHigh, V ofBand, V ofLow) const {
        return (ofHigh * weights.high + Held(ofBand) * weights.band) + Held(ofLow) * weights.low;
    }
    Planar<const Real> high, band, low;
    BandWeights<Real> weights;
};

// Split a block of interleaved frames into planar pairs for each channel. `pairs` counts pairs of
// frames. A lane is a pair.
//   L0 R0 L1 R1 | L2 R2 L3 R3 | ..      L0 L2 ..   L1 L3 ..   R0 R2 ..   R1 R3 ..
template <typename Real>
void Unweave(const float* frames, size_t pairs, Planar<Real> only) {
    ForLanes<Real>(pairs, [=]<typename V>(size_t q) {
        Complex<V> pair;
        LoadPairs(pair.re, pair.im, frames + 2 * q);
        StoreAt(only, q, pair);
    });
}
template <typename Real>
ORVANE_ARM_STATE void Unweave(const float* frames, size_t pairs, Planar<Real> left,
                              Planar<Real> right) {
    ForLanes<Real>(pairs, [=]<typename V>(size_t q) {
        Complex<V> l, r;
        LoadColumns(l.re, r.re, l.im, r.im, [=](size_t i) { return frames + 4 * (q + i); });
        StoreAt(left, q, l);
        StoreAt(right, q, r);
    });
}

// Interleave the weighted sums of the bands. `pairs` counts pairs of frames.
template <typename Real>
void Weave(const DelayedBands<Real>& only, size_t pairs, Real* frames) {
    ForLanes<Real>(pairs, [=]<typename V>(size_t q) {
        const Complex<V> sum = only.template Mix<V>(q);
        StorePairs(frames + 2 * q, sum.re, sum.im);
    });
}
template <typename Real>
void Weave(const DelayedBands<Real>& left, const DelayedBands<Real>& right, size_t pairs,
           Real* frames) {
    ForLanes<Real>(pairs, [=]<typename V>(size_t q) {
        const Complex<V> l = left.template Mix<V>(q), r = right.template Mix<V>(q);
        StoreColumns(l.re, r.re, l.im, r.im, [=](size_t i) { return frames + 4 * (q + i); });
    });
}

// Calls Weave for one or two channels.
template <typename Real>
void WeaveChannels(const std::array<DelayedBands<Real>, 2>& bands, size_t channels, size_t pairs,
                   Real* frames) {
    if (channels == 2)
        Weave(bands[0], bands[1], pairs, frames);
    else
        Weave(bands[0], pairs, frames);
}

// SumChannels makes the input of the contour's filter, and AddToChannels adds its output to each
// channel. Both round to float as the buffers do.
template <typename Real>
void SumChannels(const Real* frames, size_t channels, size_t count, Real* sums) {
    ForLanes<Real>(count, [=]<typename V>(size_t i) {
        V left, right;
        if (channels == 2) {
            LoadPairs(left, right, frames + 2 * i);
            Store(sums + i, Held(left + right));
        } else {
            Store(sums + i, Held(Load<V>(frames + i)));
        }
    });
}
template <typename Real>
void AddToChannels(const Real* contour, size_t channels, size_t count, Real* frames) {
    ForLanes<Real>(count, [=]<typename V>(size_t i) {
        const V both = Held(Load<V>(contour + i));
        if (channels == 2) {
            V left, right;
            LoadPairs(left, right, frames + 2 * i);
            StorePairs(frames + 2 * i, left + both, right + both);
        } else {
            Store(frames + i, Load<V>(frames + i) + both);
        }
    });
}
