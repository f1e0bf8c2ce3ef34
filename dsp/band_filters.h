// Three linear-phase FIR filters that split a channel into bands, by FFT block convolution with
// overlap-add (A. V. Oppenheim, R. W. Schafer, Discrete-Time Signal Processing, "Linear
// Convolution Using the Discrete Fourier Transform").
//
// Blocks of L frames, kernels of K taps, transforms of N = L + K - 1: one forward transform of the
// block, three products, three inverse transforms. The three bands add up to the input delayed by
// (K - 1) / 2 frames, which is the only delay: a block handed in comes back in the same call.
//
// The filters, their transform and its work areas serve any number of channels, one block after
// the other; what a channel has of its own is its BandTails. Blocks are planar pairs of samples.
//
// Allocates: Design, BandTails::Allocate. Thread: no lock of its own; the owner
// serialises all calls.
#pragma once
#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "dsp/fft_r24.h"
#include "dsp/owned_array.h"
#include "dsp/planar_fft.h"
#include "dsp/softfloat/band_convolver.h"

enum Band { kLowBand, kHighBand, kMiddleBand, kBands };

// What one channel's blocks leave for the next one: `length` = K - 1 samples a band, planar.
template <typename T>
struct BandTails {
    // Zeros. False, and nothing changes, if memory is refused.
    bool Allocate(size_t length) { return all.Allocate(kBands * length); }
    // As of a channel that had no block yet.
    void Clear() {
        primed = false;
        std::fill_n(all.data(), all.size(), T(0));
    }

    OwnedArray<T> all;
    bool primed = false;  // a block was processed, so the tails count
};

// Stands in for the transforms where floats are unpacked; elsewhere never.
template <typename T>
struct NoConvolver {
    static bool Allocate(uint32_t) { return true; }
    static void SetFactors(const T*, Planar<const T>) {}
    static void SetKernels(const Planar<const T> (&)[kBands]) {}
    static bool Convolve(Planar<const T>, size_t, const Planar<T> (&)[kBands], T*) { return false; }
};

template <typename T>
class BandFilters {
public:
    // The smallest L, not below 2 (K + 32), for which L + K - 1 is a power of two; 0 if that power
    // would exceed 2^30.
    static constexpr uint32_t BlockLengthFor(uint32_t kernelLength);

    // Designs the kernels (low-pass at lowCutoff, high-pass at highCutoff, band-pass between them)
    // and builds transform and work areas. windowType as FIRWindow has it, kernelLength K odd and
    // at least 3, samplingRateHz above 0. False with the present ones kept if an argument is
    // refused or the kernels can't be designed; false with none if memory for the new ones is.
    bool Design(uint32_t windowType, uint32_t kernelLength, uint32_t samplingRateHz, T lowCutoff,
                T highCutoff);
    void Release();

    uint32_t BlockLength() const { return blockLength; }          // L, 0 without a design
    uint32_t TransformLength() const { return transformLength; }  // N
    uint32_t TailLength() const { return transformLength - blockLength; }

    // Filters one block of the channel that `tails` (of TailLength()) belongs to. Block and bands
    // are N / 2 pairs, of which the first L / 2 are block and result; the other ones are
    // overwritten. One of the bands may be `block`. Not to be called without a design.
    void Split(BandTails<T>& tails, Planar<T> block, const Planar<T> (&bands)[kBands]);

    // A step of Design: spectra of three kernels of K taps each, or fewer.
    void SetKernels(const T* const (&taps)[kBands], uint32_t kernelLength);

private:
    // A transform longer than this has no use and its sizes would near the ends of 32 bits.
    static constexpr uint64_t kMaxTransform = 1U << 30;

    Planar<T> PartOf(OwnedArray<T>& all, size_t band) const;

    // Of N values each: spectra of the kernels times 2 / N, planar; bin q at q and bin N / 2 - q at
    // N / 4 + q, so that both are read in one direction; at 0 and at N / 4 the bins without mirror,
    // as FFT_R24 has them. Then what the inverse transforms begin with, planar.
    OwnedArray<T> kernels, products;
    OwnedArray<T> spectrum;     // planar, of the block
    OwnedArray<T> realFactors;  // wkr and wki of the real-spectrum step, N / 4 each
    PlanarFft<T> fft;
    std::conditional_t<kSoftFloat && std::is_same_v<T, float>, SoftBandConvolver, NoConvolver<T>>
        unpacked;
    uint32_t blockLength = 0, transformLength = 0;
};

template <typename T>
constexpr uint32_t BandFilters<T>::BlockLengthFor(uint32_t kernelLength) {
    const uint64_t K = kernelLength;
    const uint64_t N = std::bit_ceil(2 * (K + 32) + K - 1);
    return N <= kMaxTransform ? static_cast<uint32_t>(N - (K - 1)) : 0;
}

extern template class BandFilters<float>;
extern template class BandFilters<double>;
