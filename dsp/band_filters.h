// Three linear-phase FIR filters that split a channel into bands, by FFT block convolution with
// overlap-add (A. V. Oppenheim, R. W. Schafer, Discrete-Time Signal Processing, "Linear
// Convolution Using the Discrete Fourier Transform").
//
// Blocks of L frames, kernels of K taps, transforms of N = L + K - 1: one forward transform of the
// block, three products, three inverse transforms. The three bands add up to the input delayed by
// (K - 1) / 2 frames, which is the only delay: a block handed in comes back in the same call.
//
// The filters, their transform and its work areas serve any number of channels, one block after
// the other; what a channel has of its own is its BandTails.
//
// Allocates: Design, SetKernels, BandTails::Allocate. Thread: no lock of its own; the owner
// serialises all calls.
#pragma once
#include <bit>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <type_traits>

#include "dsp/fft_r24.h"
#include "dsp/owned_array.h"
#include "dsp/softfloat/band_convolver.h"

// What one channel's blocks leave for the next one, K - 1 samples a band.
template <typename T>
struct BandTails {
    // Zeros. False, and nothing changes, if memory is refused.
    bool Allocate(size_t length);
    // As of a channel that had no block yet.
    void Clear();

    OwnedArray<T> low, high, band;
    bool primed = false;  // a block was processed, so the tails count
};

// What stands in for Split's transforms where floats are unpacked; nothing elsewhere.
template <typename T, bool unpacked = kSoftFloat&& std::is_same_v<T, float>>
struct FasterConvolver {
    bool Prepare(uint32_t, const T*, const T*, const T*, const T*) { return true; }
    bool Convolve(const T*, size_t, size_t, T*, T*, T*) { return false; }
};
template <>
struct FasterConvolver<float, true> : SoftBandConvolver {};

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

    // Filters one block of L frames of the channel that `tails` (of TailLength()) belongs to:
    // sample i lies at index i * stride of the input and of the outputs, which may all be the same
    // memory. Not to be called without a design.
    void Split(BandTails<T>& tails, const T* input, T* lowOutput, T* highOutput, T* bandOutput,
               uint32_t stride);

    // Steps of Design and Split; BandSpliter says what they do.
    bool SetKernels(const T* low, const T* high, const T* band, uint32_t kernelLength, uint32_t n);
    static bool TransformOnce(T* data, uint32_t n, bool inverse);
    void Transform(T* data, bool inverse);
    void ConvolveBand(T* spectrum, uint32_t length, const T* kernel, uint32_t n, T* tail,
                      bool hasTail);
    // Product with the kernel's spectrum and inverse transform, in place.
    void CircularConvolution(T* spectrum, const T* kernel, uint32_t n);
    // Adds the tail, if there is one, to a circular convolution and takes its end as the next.
    static void OverlapAdd(T* convolution, uint32_t length, uint32_t n, T* tail, bool hasTail);
    // Times 2 / n.
    static void Scale(T* data, uint32_t count, uint32_t n);

private:
    // A transform longer than this has no use and its sizes would near the ends of 32 bits.
    static constexpr uint64_t kMaxTransform = 1U << 30;

    OwnedArray<T> lowKernel, highKernel, bandKernel;  // spectra times 2 / N, packed as FFT_R24's
    OwnedArray<T> lowWork, highWork, bandWork;        // N
    std::unique_ptr<FFT_R24<T>> fft;
    FasterConvolver<T> faster;
    uint32_t blockLength = 0, transformLength = 0;
};

template <typename T>
constexpr uint32_t BandFilters<T>::BlockLengthFor(uint32_t kernelLength) {
    const uint64_t K = kernelLength;
    const uint64_t N = std::bit_ceil(2 * (K + 32) + K - 1);
    return N <= kMaxTransform ? static_cast<uint32_t>(N - (K - 1)) : 0;
}

extern template struct BandTails<float>;
extern template struct BandTails<double>;
extern template class BandFilters<float>;
extern template class BandFilters<double>;
