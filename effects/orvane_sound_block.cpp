// One block of the enhancer: from the input buffer through bands, delays and contour to the output.
#include <algorithm>
#include <array>
#include <type_traits>

#include "dsp/arm_state.h"
#include "dsp/runs.h"
#include "dsp/softfloat/contour_mix.h"
#include "effects/orvane_sound.h"

namespace {

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
    ORVANE_LANE_INLINE Complex<V> Mix(size_t q) const {
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
ORVANE_ARM_STATE void Unweave(const float* frames, size_t pairs, Planar<Real> left,
                              Planar<Real> right) {
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

// What goes into the contour's filter, and what comes out added to each channel; both rounded as
// the buffers hold it.
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

// The sums of the bands with the contour, where floats are unpacked; false, with the filter as it
// was, where they can't be.
[[maybe_unused]] bool MixUnpacked(const std::array<DelayedBands<float>, 2>& bands,
                                  Biquad<float, float>* filter, size_t pairs, size_t channels,
                                  float* frames) {
    using Variant = OrvaneSoundVariant<float>;
    BandSamples samples[2];
    for (size_t c = 0; c < 2; ++c)
        samples[c] = {{bands[c].high.re, bands[c].high.im},
                      {bands[c].band.re, bands[c].band.im},
                      {bands[c].low.re, bands[c].low.im}};
    return MixWithContour(samples, {bands[0].highWeight, Variant::kBandWeight, Variant::kLowWeight},
                          filter, frames, 2 * pairs, channels);
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
    if constexpr (kContourLast)
        PushBands();
    else
        PushBandsWithContour();
    for (uint32_t c = 0; c < channels; ++c) {
        state[c].bandDelay.Advance();
        state[c].lowDelay.Advance();
    }
}

// Where the output goes on, which has room for it and holds a block more from now on.
template <typename Sample, typename Real>
float* OrvaneSound<Sample, Real>::AppendBlock() {
    const uint32_t held = outputBuffer->GetBufferOffset();
    outputBuffer->SetBufferOffset(held + kBlock);
    return outputBuffer->GetCurrentBufferR32Ptr() + size_t{held} * channels;
}

// The sums of a block's bands to the output.
template <typename Sample, typename Real>
void OrvaneSound<Sample, Real>::PushBands() {
    float* const frames = AppendBlock();
    const DelayedBands<float> left = BandsOf(state[0], 0, process);
    if (channels == 2)
        Weave(left, BandsOf(state[1], 0, process), kPairs, frames);
    else
        Weave(left, kPairs, frames);
}

// The same with the contour, all at once or a chunk at a time.
template <typename Sample, typename Real>
void OrvaneSound<Sample, Real>::PushBandsWithContour() {
    const auto bandsFrom = [this](size_t at) {
        return std::array{BandsOf(state[0], at, process),
                          BandsOf(state[channels - 1], at, process)};
    };
    if constexpr (kSoftFloat && std::is_same_v<Real, float>) {
        const uint32_t held = outputBuffer->GetBufferOffset();
        if (MixUnpacked(bandsFrom(0), &loContourFilter, kPairs, channels, AppendBlock())) return;
        outputBuffer->SetBufferOffset(held);
    }
    Real frames[kChunkFrames * kMaxChannels], contour[kChunkFrames];
    for (size_t at = 0; at < kPairs; at += kChunkFrames / 2) {
        const size_t pairs = std::min<size_t>(kChunkFrames / 2, kPairs - at), count = 2 * pairs;
        const auto bands = bandsFrom(at);
        if (channels == 2)
            Weave(bands[0], bands[1], pairs, frames);
        else
            Weave(bands[0], pairs, frames);
        SumChannels(frames, channels, count, contour);
        loContourFilter.Process(contour, static_cast<uint32_t>(count));
        AddToChannels(contour, channels, count, frames);
        outputBuffer->PushSamples(frames, static_cast<uint32_t>(count));
    }
}

template <typename Sample, typename Real>
void OrvaneSound<Sample, Real>::BeginContour(ContourChunk& chunk, const float* frames,
                                             size_t count) {
    chunk.done = count;
    if (enabled) {
        chunk.done = std::min<size_t>(count, contoured);
        contoured -= static_cast<uint32_t>(chunk.done);
    }
    chunk.count = count - chunk.done;
    chunk.run = loContourFilter.Begin(chunk.sums);
    SumChannels(frames + chunk.done * channels, channels, chunk.count, chunk.sums);
}

template <typename Sample, typename Real>
void OrvaneSound<Sample, Real>::FinishContour(const ContourChunk& chunk, float* frames) {
    loContourFilter.Finish(chunk.run);
    AddToChannels(chunk.sums, channels, chunk.count, frames + chunk.done * channels);
}

// To the first n frames of the output.
template <typename Sample, typename Real>
void OrvaneSound<Sample, Real>::AddContour(uint32_t n) {
    float* frames = outputBuffer->GetCurrentBufferR32Ptr();
    for (uint32_t left = n; left > 0;) {
        const uint32_t count = std::min<uint32_t>(left, kChunkFrames);
        ContourChunk chunk;
        BeginContour(chunk, frames, count);
        RunAlone(chunk.run, chunk.count);
        FinishContour(chunk, frames);
        frames += size_t{count} * channels;
        left -= count;
    }
}

template <typename Sample, typename Real>
void OrvaneSound<Sample, Real>::AddContourToWaiting() {
    if (!GetPrepared()) return;
    const uint32_t waiting = outputBuffer->GetBufferOffset();
    AddContour(waiting);
    contoured = waiting;
}

template void OrvaneSound<float, float>::RunBlock();
template void OrvaneSound<float, double>::RunBlock();
template float* OrvaneSound<float, float>::AppendBlock();
template void OrvaneSound<float, float>::PushBands();
template void OrvaneSound<float, float>::PushBandsWithContour();
template void OrvaneSound<float, double>::PushBandsWithContour();
template void OrvaneSound<float, float>::AddContour(uint32_t);
template void OrvaneSound<float, float>::AddContourToWaiting();
template void OrvaneSound<float, float>::BeginContour(ContourChunk&, const float*, size_t);
template void OrvaneSound<float, float>::FinishContour(const ContourChunk&, float*);
