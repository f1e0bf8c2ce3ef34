// Splits one channel into three bands. It is BandFilters and the overlap tails of one channel in
// one object. The single steps below are the plain form; BandFilters gives the same bits.
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

    // Designs the filters and builds every buffer; the arguments are those of BandFilters::Design.
    // Returns false if an argument is refused or the kernels can't be designed; the previous set-up
    // then stays. Returns false, and the object isn't usable, if memory is refused.
    bool SetParameter(uint32_t windowType, uint32_t kernelLength, uint32_t samplingRateHz,
                      T lowCutoff, T highCutoff);

    // Filters one block of one channel. Sample i is at index i * stride of the input and of the
    // outputs, which may all be the same memory. Always returns `frames`. Writes nothing unless
    // `frames` equals the block length.
    uint32_t ConvolveInterleaved(const T* input, T* lowOutput, T* highOutput, T* bandOutput,
                                 uint32_t frames, uint32_t stride);
    uint32_t Convolve(const T* input, T* low, T* high, T* band, uint32_t frames) {
        return ConvolveInterleaved(input, low, high, band, frames, 1);
    }

    // Clears the history, as after SetParameter; kernels and sizes stay.
    void Reset();

    uint32_t GetProceedBufferSize() const { return filters.BlockLength(); }  // L; 0 if not set up
    uint32_t GetFFTSize() const { return filters.TransformLength(); }        // N
    bool InstanceUsable() const { return filters.BlockLength() != 0; }

    // Equals BandFilters::BlockLengthFor.
    static uint32_t GetDataLength(uint32_t kernelLength);

    // What follows are the steps of SetParameter, and those of ConvolveInterleaved in their plain
    // form.

    // Computes the kernels' spectra (N values each, times 2 / N) from kernelLength <= N taps.
    // Returns false, and changes nothing, if transformLength isn't this splitter's N. Before
    // SetParameter a call has no effect and returns true.
    bool ProcessKernel(const T* low, const T* high, const T* band, uint32_t kernelLength,
                       uint32_t transformLength);
    // Allocates the three overlap tails. Returns false if the sizes aren't set or memory is
    // refused.
    bool PrepareBuffer();
    // Transforms n values in place with an FFT object built for this call. With `scale`, the values
    // are multiplied by 2 / n. Returns false, with the values unchanged, if memory is refused.
    bool CvFFTRealTime(T* data, uint32_t n, bool inverse, bool scale);
    // Like CvFFTRealTime with the splitter's own FFT object, whose length is used instead of n.
    // Does nothing before SetParameter.
    void CvFFTCreated(T* data, uint32_t n, bool inverse, bool scale);
    // Finishes one band: multiplies by the kernel's spectrum, transforms back, adds the overlap.
    // The output is spectrum[0 .. blockLength - 1].
    void ConvSignal(T* spectrum, uint32_t blockLength, const T* kernel, uint32_t transformLength,
                    T* overlap, bool hasTail);
    void ReleaseResources();

private:
    ORVANE_LOCAL Planar<T> Work(size_t i) {
        return {work[i].data(), work[i].data() + work[i].size() / 2};
    }

    BandFilters<T> filters;
    BandTails<T> tails;
    OwnedArray<T> work[kBands];       // planar, one for each band; the block shares the high band's
    std::unique_ptr<FFT_R24<T>> fft;  // for CvFFTCreated
};

extern template class BandSpliter<float>;
extern template class BandSpliter<double>;
using BandSpliter_R32R32 = BandSpliter<float>;
using BandSpliter_R64R64 = BandSpliter<double>;
