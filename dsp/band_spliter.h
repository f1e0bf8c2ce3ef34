// Splits one channel into three bands: BandFilters and the tails of one channel in one object. Its
// steps one by one are the plain form, which BandFilters equals bit for bit.
//
// Allocates: SetParameter, PrepareBuffer, CvFFTRealTime. Thread: no lock of its own;
// the owner serialises all calls.
#pragma once
#include <cstddef>
#include <cstdint>
#include <memory>

#include "dsp/band_filters.h"
#include "platform/export.h"

template <typename T>
class ORVANE_API BandSpliter {
public:
    // Not usable until set up.
    BandSpliter();
    ~BandSpliter();

    // Designs the filters and builds every buffer; arguments as BandFilters::Design has them. False
    // with the previous set-up kept if an argument is refused or the kernels can't be designed;
    // false and not usable if memory for the new state is refused.
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

    uint32_t GetProceedBufferSize() const { return filters.BlockLength(); }  // L, 0 when not set up
    uint32_t GetFFTSize() const { return filters.TransformLength(); }        // N
    bool InstanceUsable() const { return filters.BlockLength() != 0; }

    // BandFilters::BlockLengthFor.
    static uint32_t GetDataLength(uint32_t kernelLength);

    // Steps of SetParameter, and of ConvolveInterleaved in their plain form.

    // Kernels of up to N taps to the N values of their spectra, scaled by 2 / N. False, and nothing
    // changes, if N isn't this splitter's. Before SetParameter, which makes its own, without
    // effect.
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
    ORVANE_LOCAL Planar<T> Work(size_t i) {
        return {work[i].data(), work[i].data() + work[i].size() / 2};
    }

    BandFilters<T> filters;
    BandTails<T> tails;
    OwnedArray<T> work[kBands];       // planar; the block and the high band share one
    std::unique_ptr<FFT_R24<T>> fft;  // for CvFFTCreated
};

extern template class BandSpliter<float>;
extern template class BandSpliter<double>;
using BandSpliter_R32R32 = BandSpliter<float>;
using BandSpliter_R64R64 = BandSpliter<double>;
