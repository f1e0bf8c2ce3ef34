// Splits one channel into three bands with linear-phase FIR filters, by FFT block convolution with
// overlap-add (A. V. Oppenheim, R. W. Schafer, Discrete-Time Signal Processing, "Linear
// Convolution Using the Discrete Fourier Transform").
//
// Blocks of L frames, kernels of K taps, transforms of N = L + K - 1: one forward transform of the
// block, three products, three inverse transforms. The three bands add up to the input delayed by
// (K - 1) / 2 frames, which is the only delay: a block handed in comes back in the same call.
//
// Allocates: SetParameter only. Thread: no lock of its own; the owner serialises all calls.
#pragma once
#include <cstddef>
#include <cstdint>
#include <memory>

#include "dsp/fft_r24.h"
#include "dsp/owned_array.h"
#include "platform/export.h"

template <typename T>
class ORVANE_API BandSpliter {
public:
    // Not usable until set up.
    BandSpliter();
    ~BandSpliter();

    // Designs the kernels (low-pass at lowCutoff, high-pass at highCutoff, band-pass between them)
    // and builds every buffer. windowType as FIRWindow has it, kernelLength K odd and at least 3,
    // samplingRateHz above 0. False with the previous set-up kept if an argument is refused or the
    // kernels can't be designed; false and not usable if memory for the new state is refused.
    bool SetParameter(uint32_t windowType, uint32_t kernelLength, uint32_t samplingRateHz,
                      T lowCutoff, T highCutoff);

    // Filters one block of one channel: sample i lies at index i * stride of the input and of the
    // outputs, which may all be the same memory. Returns `frames`. Writes nothing unless `frames`
    // is the block length.
    uint32_t ConvolveInterleaved(const T* input, T* lowOutput, T* highOutput, T* bandOutput,
                                 uint32_t frames, uint32_t stride);
    uint32_t Convolve(const T* input, T* low, T* high, T* band, uint32_t frames) {
        return ConvolveInterleaved(input, low, high, band, frames, 1);
    }

    // Forgets the history, as newly set up; kernels and sizes stay.
    void Reset();

    uint32_t GetProceedBufferSize() const { return proceedBufferSize; }  // L, 0 when not set up
    uint32_t GetFFTSize() const { return fftSize; }                      // N
    bool InstanceUsable() const { return instanceUsable; }

    // The smallest L, not below 2 (K + 32), for which L + K - 1 is a power of two; 0 if that power
    // would exceed 2^30.
    static uint32_t GetDataLength(uint32_t kernelLength);

    // Steps of SetParameter and ConvolveInterleaved.

    // Kernels of K taps to spectra of N values, scaled by 2 / N. False if memory is refused.
    bool ProcessKernel(const T* low, const T* high, const T* band, uint32_t kernelLength,
                       uint32_t transformLength);
    // The three overlap tails. False if the sizes aren't set or memory is refused.
    bool PrepareBuffer();
    // Transforms n values in place with an object built for this call; `scale` multiplies by 2 / n.
    // False, and the values are unchanged, if memory is refused.
    bool CvFFTRealTime(T* data, uint32_t n, bool inverse, bool scale);
    // The same with this object's own transform, whose length counts; without one, nothing happens.
    void CvFFTCreated(T* data, uint32_t n, bool inverse, bool scale);
    // One band: product with the kernel's spectrum, inverse transform, overlap-add. The block's
    // output is spectrum[0 .. blockLength - 1].
    void ConvSignal(T* spectrum, uint32_t blockLength, const T* kernel, uint32_t transformLength,
                    T* overlap, bool hasTail);
    void ReleaseResources();

private:
    OwnedArray<T> lowKernel, highKernel, bandKernel;     // spectra, N
    OwnedArray<T> lowOverlap, highOverlap, bandOverlap;  // N - L
    uint32_t fftSize = 0;
    bool instanceUsable = false;
    bool primed = false;  // a block was processed, so the tails count
    uint32_t proceedBufferSize = 0;
    std::unique_ptr<FFT_R24<T>> fft;
    OwnedArray<T> lowWork, highWork, bandWork;  // N
};

extern template class BandSpliter<float>;
extern template class BandSpliter<double>;
using BandSpliter_R32R32 = BandSpliter<float>;
using BandSpliter_R64R64 = BandSpliter<double>;
