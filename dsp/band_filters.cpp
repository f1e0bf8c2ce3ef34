#include "dsp/band_filters.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "dsp/fir_window.h"

namespace {

template <typename T>
Planar<T> HalvesOf(OwnedArray<T>& array) {
    return {array.data(), array.data() + array.size() / 2};
}

// Computes bins q and N / 2 - q of the real spectrum from x, the half-length complex transform.
// `factors` are the real-spectrum factors of q. A lane is a value of q; q rises in `low` and
// N / 2 - q falls in `high`:
//   low    q    q + 1   q + 2   q + 3
//   high   M-q  M-q-1   M-q-2   M-q-3       M = N / 2
template <typename V, typename T>
ORVANE_LANE_INLINE MirroredPair<V> BinsAt(Planar<T> x, size_t M, Complex<V> factors, size_t q) {
    return RealForward(LoadAt<V>(x, q), LoadReversed<V>(x, M - q), factors.re, factors.im);
}

// Calls `body` for vectors of bins that cover 1 to end - 1. The first vector begins at bin 1; the
// others begin at multiples of the width, so the second may overlap the first.
template <typename T, typename Body>
ORVANE_LANE_INLINE void ForMirroredBins(size_t end, Body body) {
    using V = typename WidestVector<T>::Type;
    constexpr size_t W = kWidth<V, T>;
    for (size_t q = 1; q < end; q = q % W == 0 ? q + W : W) body.template operator()<V>(q);
}

// Does three things in one pass. These are the last step of FFT_R24's forward transform, the
// product with each kernel's spectrum (as BandSpliter::ConvSignal does it), and the first step of
// the inverse transform. `low` (the kernels) and `out` have N values for each band.
template <typename T>
void Multiply(Planar<T> x, Planar<T> factors, Planar<T> low, Planar<T> out, size_t N) {
    const size_t M = N / 2;
    const Planar<T> high = low + M / 2;
    ForMirroredBins<T>(M / 2, [=]<typename V>(size_t q) {
        const Complex<V> w = LoadAt<V>(factors, q);
        const MirroredPair<V> bins = BinsAt<V>(x, M, w, q);
        for (size_t b = 0, at = 0; b < kBands; ++b, at += N) {
            const MirroredPair<V> r =
                RealInverse(Twiddle(LoadAt<V>(low, at + q), bins.low),
                            Twiddle(LoadAt<V>(high, at + q), bins.high), w.re, w.im);
            StoreAt(out, at + q, r.low);
            StoreReversed(out, at + M - q, r.high);
        }
    });
    // Bins 0 and N / 2 share a pair, and bin N / 4 is its own mirror image.
    const T first = x.re[0] + x.im[0], last = x.re[0] - x.im[0];
    for (size_t at = 0; at < kBands * N; at += N) {
        const T r0 = first * low.re[at], r1 = last * low.im[at];
        const T half = static_cast<T>(0.5) * (r0 - r1);
        StoreAt(out, at, Complex<T>{r0 - half, -half});
        const Complex<T> middle = Twiddle(LoadAt<T>(high, at), LoadAt<T>(x, M / 2));
        StoreAt(out, at + M / 2, Complex<T>{middle.re, -middle.im});
    }
}

// Adds the previous block's tail to `band`, then stores the end of `band` as the new tail.
template <typename T>
void AddTail(Planar<T> band, size_t blockPairs, Planar<T> tail, size_t tailPairs, bool primed) {
    ForLanes<T>(tailPairs, [=]<typename V>(size_t q) {
        if (primed) {
            const Complex<V> a = LoadAt<V>(band, q), b = LoadAt<V>(tail, q);
            StoreAt(band, q, Complex<V>{a.re + b.re, a.im + b.im});
        }
        StoreAt(tail, q, LoadAt<V>(band, q + blockPairs));
    });
}

}  // namespace

template <typename T>
bool BandFilters<T>::Design(uint32_t windowType, uint32_t kernelLength, uint32_t samplingRateHz,
                            T lowCutoff, T highCutoff) {
    const uint32_t K = kernelLength, L = BlockLengthFor(K), N = L + K - 1;
    if (K < 3 || K % 2 == 0 || samplingRateHz == 0 || L == 0) return false;
    if (!std::isfinite(lowCutoff) || !std::isfinite(highCutoff)) return false;
    OwnedArray<T> taps[kBands];
    for (OwnedArray<T>& each : taps)
        if (!each.Allocate(K)) return false;
    const int window = static_cast<int>(windowType);
    const T rate = static_cast<T>(samplingRateHz);
    const T* const kernelTaps[kBands] = {taps[0].data(), taps[1].data(), taps[2].data()};
    using Window = FIRWindow<T>;
    if (!Window::MakeLowpassFIRCoeffs(window, taps[kLowBand].data(), K, rate, lowCutoff) ||
        !Window::MakeHighpassFIRCoeffs(window, taps[kHighBand].data(), K, rate, highCutoff) ||
        !Window::MakeBandpassFIRCoeffs(window, taps[kMiddleBand].data(), K, rate, lowCutoff,
                                       highCutoff))
        return false;

    Release();
    FFT_R24<T> tables(N);
    const bool granted = tables.Prepared() && kernels.Allocate(size_t{kBands} * N) &&
                         products.Allocate(size_t{kBands} * N) && spectrum.Allocate(N) &&
                         realFactors.Allocate(N / 2) && unpacked.Allocate(N);
    if (granted) MakeFftTables(static_cast<int>(N), tables.ip.data(), tables.w.data());
    if (!granted || !fft.Prepare(N, tables.w.data())) {
        Release();
        return false;
    }
    const size_t quarter = N / 4;
    const T* const c = tables.w.data() + quarter;
    for (size_t q = 1; q < quarter; ++q) {
        realFactors[q] = static_cast<T>(0.5) - c[quarter - q];
        realFactors[quarter + q] = c[q];
    }
    unpacked.SetFactors(tables.w.data(), HalvesOf(realFactors));
    blockLength = L;
    transformLength = N;
    SetKernels(kernelTaps, K);
    return true;
}

template <typename T>
void BandFilters<T>::Release() {
    *this = {};
}

template <typename T>
void BandFilters<T>::SetKernels(const T* const (&taps)[kBands], uint32_t kernelLength) {
    const size_t N = transformLength, M = N / 2;
    const double scale = 2.0 / static_cast<double>(N);
    const Planar<T> x = HalvesOf(spectrum), factors = HalvesOf(realFactors);
    for (size_t b = 0; b < kBands; ++b) {
        const Planar<T> work = PartOf(products, b), low = PartOf(kernels, b), high = low + M / 2;
        std::fill_n(work.re, N, T(0));
        for (size_t i = 0; i < kernelLength; ++i)
            (i % 2 == 0 ? work.re : work.im)[i / 2] =
                static_cast<T>(static_cast<double>(taps[b][i]) * scale);
        fft.Forward(work, x);
        ForMirroredBins<T>(M / 2, [=]<typename V>(size_t q) {
            const MirroredPair<V> bins = BinsAt<V>(x, M, LoadAt<V>(factors, q), q);
            StoreAt(low, q, bins.low);
            StoreAt(high, q, bins.high);
        });
        // Bins 0 and N / 2 share a pair, and bin N / 4 is its own mirror image.
        const Complex<T> ends = LoadAt<T>(x, 0);
        StoreAt(low, 0, Complex<T>{ends.re + ends.im, ends.re - ends.im});
        StoreAt(high, 0, LoadAt<T>(x, M / 2));
    }
    unpacked.SetKernels({PartOf(kernels, 0), PartOf(kernels, 1), PartOf(kernels, 2)});
}

template <typename T>
void BandFilters<T>::Split(BandTails<T>& tails, Planar<T> block, const Planar<T> (&bands)[kBands]) {
    const bool primed = tails.primed;
    tails.primed = true;
    const size_t pairs = blockLength / 2, tailPairs = TailLength() / 2;
    if (unpacked.Convolve(block, pairs, bands, tails.all.data())) return;
    std::fill_n(block.re + pairs, tailPairs, T(0));
    std::fill_n(block.im + pairs, tailPairs, T(0));
    fft.Forward(block, HalvesOf(spectrum));
    Multiply(HalvesOf(spectrum), HalvesOf(realFactors), PartOf(kernels, 0), PartOf(products, 0),
             transformLength);
    for (size_t b = 0; b < kBands; ++b) {
        fft.Backward(PartOf(products, b), bands[b]);
        T* const tail = tails.all.data() + 2 * b * tailPairs;
        AddTail(bands[b], pairs, {tail, tail + tailPairs}, tailPairs, primed);
    }
}

// Returns one band's part of `kernels` or `products`.
template <typename T>
Planar<T> BandFilters<T>::PartOf(OwnedArray<T>& all, size_t band) const {
    T* const part = all.data() + band * transformLength;
    return {part, part + transformLength / 2};
}

template class BandFilters<float>;
template class BandFilters<double>;
