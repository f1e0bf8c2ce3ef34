// Three linear-phase FIR filters that split a channel into bands, by FFT block convolution with
// overlap-add (A. V. Oppenheim, R. W. Schafer, Discrete-Time Signal Processing, "Linear
// Convolution Using the Discrete Fourier Transform").
//
// A block has L frames and a kernel has K taps. Transforms have N = L + K - 1 points: one forward
// transform of the block, one product with each kernel's spectrum, three inverse transforms. The
// three bands add up to the input delayed by (K - 1) / 2 frames. There is no other delay: the
// result of a block is ready when the call returns.
//
// One object (filters, transform, work areas) serves any number of channels, one block after the
// other. Only the overlap tails belong to a channel: see BandTails. Blocks are planar pairs of
// samples (planar.h).
//
// Allocates: Design, BandTails::Allocate. Thread: no lock of its own; the owner
// serialises all calls.
#pragma once
#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>

#include "dsp/fft_r24.h"
#include "dsp/owned_array.h"
#include "dsp/planar_fft.h"
#include "dsp/softfloat/band_convolver.h"

enum Band { kLowBand, kHighBand, kMiddleBand, kBands };

// The overlap tails of one channel: what each block adds to the next one. A tail has K - 1 samples
// in each band, stored as planar pairs.
template <typename T>
struct BandTails {
    // Makes tails of `length` = K - 1 zeros in each band. Returns false, and changes nothing, if
    // memory is refused.
    bool Allocate(size_t length) { return all.Allocate(kBands * length); }
    // Returns to the state before the channel's first block.
    void Clear() {
        primed = false;
        std::fill_n(all.data(), all.size(), T(0));
    }

    OwnedArray<T> all;
    bool primed = false;  // true once a block was processed: the tails are valid
};

template <typename T>
class BandFilters {
public:
    // Returns the smallest L that is at least 2 (K + 32) and for which L + K - 1 is a power of two.
    // Returns 0 if that power of two would exceed 2^30.
    static constexpr uint32_t BlockLengthFor(uint32_t kernelLength);

    // Designs the kernels (low-pass at lowCutoff, high-pass at highCutoff, band-pass between them;
    // cut-offs in Hz) and builds the transform and the work areas. windowType is a FIRWindow
    // number; kernelLength is K, odd and at least 3; samplingRateHz is above 0. Returns false if an
    // argument is refused or the kernels can't be designed; the present filters then stay. Returns
    // false without any filters if memory for the new ones is refused.
    bool Design(uint32_t windowType, uint32_t kernelLength, uint32_t samplingRateHz, T lowCutoff,
                T highCutoff);
    void Release();

    uint32_t BlockLength() const { return blockLength; }          // L; 0 before a design
    uint32_t TransformLength() const { return transformLength; }  // N
    uint32_t TailLength() const { return transformLength - blockLength; }

    // Filters one block of the channel that owns `tails` (made with TailLength()). `block` and each
    // of `bands` have room for N / 2 pairs. The first L / 2 pairs are the block's samples and the
    // results; the other pairs are overwritten. One of the bands may be `block` itself. Design must
    // have succeeded.
    void Split(BandTails<T>& tails, Planar<T> block, const Planar<T> (&bands)[kBands]);

    // A step of Design: computes the spectra of three kernels of at most K taps each.
    void SetKernels(const T* const (&taps)[kBands], uint32_t kernelLength);

private:
    // A longer transform has no use, and its sizes would come close to 2^32.
    static constexpr uint64_t kMaxTransform = 1U << 30;

    Planar<T> PartOf(OwnedArray<T>& all, size_t band) const;

    // `kernels` holds N values for each band: the kernel's spectrum times 2 / N, planar. Bin q is
    // at index q and bin N / 2 - q at N / 4 + q, so that both are read in one direction. The bins
    // without a mirror image are at 0 (bins 0 and N / 2, as FFT_R24 packs them) and at N / 4.
    // `products` holds the input of the inverse transforms, N values for each band, planar.
    OwnedArray<T> kernels, products;
    OwnedArray<T> spectrum;     // the block's spectrum, planar
    OwnedArray<T> realFactors;  // factors of the real-spectrum step: N / 4 wkr, then N / 4 wki
    PlanarFft<T> fft;
    UnpackedConvolver<T> unpacked;
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
