// One block of the enhancer: from the input buffer through bands, delays and contour to the output.
#include <algorithm>
#include <type_traits>

#include "dsp/softfloat/contour_mix.h"
#include "effects/orvane_sound.h"

namespace {

// Frames from the sums of the bands to the output at once.
constexpr size_t kChunk = 64;

// A value as the buffers between the steps hold it: rounded to float.
template <typename V>
[[gnu::always_inline]] inline V Held(V v) {
    return v;
}
[[gnu::always_inline]] inline double Held(double v) {
    const volatile float held = static_cast<float>(v);  // gcc 12 drops a vector's two conversions
    return held;
}

// The bands of one channel from some pair of its block on, and their weighted sum.
template <typename Real>
struct DelayedBands {
    template <typename V>
    [[gnu::always_inline]] Complex<V> Mix(size_t q) const {
        const Complex<V> h = LoadAt<V>(high, q), b = LoadAt<V>(band, q), l = LoadAt<V>(low, q);
        return {Sum(h.re, b.re, l.re), Sum(h.im, b.im, l.im)};
    }
    template <typename V>
    [[gnu::always_inline]] V Sum(V ofHigh, V ofBand, V ofLow) const {
        return (ofHigh * highWeight + Held(ofBand) * OrvaneSoundVariant<Real>::kBandWeight) +
               Held(ofLow) * OrvaneSoundVariant<Real>::kLowWeight;
    }
    Planar<const Real> high, band, low;
    Real highWeight;
};

template <typename Real, typename Channel>
DelayedBands<Real> BandsOf(Channel& channel, size_t at, Real highWeight) {
    return {channel.Block() + at, channel.bandDelay.Delayed() + at, channel.lowDelay.Delayed() + at,
            highWeight};
}

// A block of interleaved frames into the channels' planar ones. Lanes: neighbouring pairs.
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
void Unweave(const float* frames, size_t pairs, Planar<Real> left, Planar<Real> right) {
    ForLanes<Real>(pairs, [=]<typename V>(size_t q) {
        Complex<V> l, r;
        LoadColumns(l.re, r.re, l.im, r.im, [=](size_t i) { return frames + 4 * (q + i); });
        StoreAt(left, q, l);
        StoreAt(right, q, r);
    });
}

// The other way, the sums of the bands, `pairs` pairs.
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

// Everything into and out of the filter is rounded as the buffers hold it.
template <typename Real>
void AddContourToOne(Biquad<Real, Real>& filter, Real* samples, uint32_t count) {
    Real contour[kChunk];
    ForLanes<Real>(count, [=, &contour]<typename V>(size_t i) {
        Store(contour + i, Held(Load<V>(samples + i)));
    });
    filter.Process(contour, static_cast<uint32_t>(count));
    ForLanes<Real>(count, [=, &contour]<typename V>(size_t i) {
        Store(samples + i, Load<V>(samples + i) + Held(Load<V>(contour + i)));
    });
}
template <typename Real>
void AddContourToBoth(Biquad<Real, Real>& filter, Real* frames, uint32_t count) {
    Real contour[kChunk];
    ForLanes<Real>(count, [=, &contour]<typename V>(size_t i) {
        V left, right;
        LoadPairs(left, right, frames + 2 * i);
        Store(contour + i, Held(left + right));
    });
    filter.Process(contour, static_cast<uint32_t>(count));
    ForLanes<Real>(count, [=, &contour]<typename V>(size_t i) {
        V left, right;
        LoadPairs(left, right, frames + 2 * i);
        const V both = Held(Load<V>(contour + i));
        StorePairs(frames + 2 * i, left + both, right + both);
    });
}

// The sums of the bands with the contour, where floats are unpacked; false, with nothing done,
// where they aren't or can't be.
template <typename Real>
bool MixUnpacked(const DelayedBands<Real> (&bands)[2], Biquad<Real, Real>* filter, size_t pairs,
                 size_t channels, Real* frames) {
    if constexpr (kSoftFloat && std::is_same_v<Real, float>) {
        using Variant = OrvaneSoundVariant<float>;
        BandSamples samples[2];
        for (size_t c = 0; c < 2; ++c)
            samples[c] = {{bands[c].high.re, bands[c].high.im},
                          {bands[c].band.re, bands[c].band.im},
                          {bands[c].low.re, bands[c].low.im}};
        return MixWithContour(samples,
                              {bands[0].highWeight, Variant::kBandWeight, Variant::kLowWeight},
                              filter, frames, 2 * pairs, channels);
    }
    return false;
}

}  // namespace

template <typename Sample, typename Real>
void OrvaneSound<Sample, Real>::RunBlock() {
    const bool stereo = channels == 2;
    Channel &left = state[0], &right = state[1];
    if (stereo)
        Unweave(inputBuffer->GetCurrentBufferR32Ptr(), kPairs, left.Block(), right.Block());
    else
        Unweave(inputBuffer->GetCurrentBufferR32Ptr(), kPairs, left.Block());
    inputBuffer->DropFrames(kBlock);
    for (uint32_t c = 0; c < channels; ++c)
        filters.Split(state[c].tails, state[c].Block(),
                      {state[c].lowDelay.Next(), state[c].Block(), state[c].bandDelay.Next()});
    Real frames[kChunk * kMaxChannels];
    for (size_t at = 0; at < kPairs; at += kChunk / 2) {
        const size_t pairs = std::min(kChunk / 2, kPairs - at);
        const auto count = static_cast<uint32_t>(2 * pairs);
        const DelayedBands<Real> bands[] = {BandsOf(left, at, process),
                                            BandsOf(stereo ? right : left, at, process)};
        if (MixUnpacked(bands, &loContourFilter, pairs, channels, frames)) {
            // Nothing is left to do.
        } else if (stereo) {
            Weave(bands[0], bands[1], pairs, frames);
            AddContourToBoth(loContourFilter, frames, count);
        } else {
            Weave(bands[0], pairs, frames);
            AddContourToOne(loContourFilter, frames, count);
        }
        outputBuffer->PushSamples(frames, count);
    }
    for (uint32_t c = 0; c < channels; ++c) {
        const Planar<Real> block = state[c].Block();
        std::fill(block.re + kPairs, block.re + kTransformPairs, Real(0));
        std::fill(block.im + kPairs, block.im + kTransformPairs, Real(0));
        state[c].bandDelay.Advance();
        state[c].lowDelay.Advance();
    }
}

template void OrvaneSound<float, float>::RunBlock();
template void OrvaneSound<float, double>::RunBlock();
