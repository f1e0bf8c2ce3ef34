#include "dsp/band_spliter.h"

template <typename T>
BandSpliter<T>::BandSpliter() = default;

template <typename T>
BandSpliter<T>::~BandSpliter() = default;

template <typename T>
uint32_t BandSpliter<T>::GetDataLength(uint32_t kernelLength) {
    return BandFilters<T>::BlockLengthFor(kernelLength);
}

template <typename T>
bool BandSpliter<T>::SetParameter(uint32_t windowType, uint32_t kernelLength,
                                  uint32_t samplingRateHz, T lowCutoff, T highCutoff) {
    const bool designed =
        filters.Design(windowType, kernelLength, samplingRateHz, lowCutoff, highCutoff);
    if (designed && PrepareBuffer()) {
        tails.Clear();
        return true;
    }
    if (designed || !InstanceUsable()) ReleaseResources();
    return false;
}

template <typename T>
bool BandSpliter<T>::ProcessKernel(const T* low, const T* high, const T* band,
                                   uint32_t kernelLength, uint32_t transformLength) {
    return filters.SetKernels(low, high, band, kernelLength, transformLength);
}

template <typename T>
bool BandSpliter<T>::PrepareBuffer() {
    return InstanceUsable() && tails.Allocate(filters.TailLength());
}

template <typename T>
bool BandSpliter<T>::CvFFTRealTime(T* data, uint32_t n, bool inverse, bool scale) {
    if (!BandFilters<T>::TransformOnce(data, n, inverse)) return false;
    if (scale) BandFilters<T>::Scale(data, n, n);
    return true;
}

template <typename T>
void BandSpliter<T>::CvFFTCreated(T* data, uint32_t n, bool inverse, bool scale) {
    if (!InstanceUsable()) return;
    filters.Transform(data, inverse);
    if (scale) BandFilters<T>::Scale(data, n, n);
}

template <typename T>
uint32_t BandSpliter<T>::ConvolveInterleaved(const T* input, T* lowOutput, T* highOutput,
                                             T* bandOutput, uint32_t frames, uint32_t stride) {
    if (frames == filters.BlockLength() && InstanceUsable())
        filters.Split(tails, input, lowOutput, highOutput, bandOutput, stride);
    return frames;
}

template <typename T>
void BandSpliter<T>::ConvSignal(T* spectrum, uint32_t blockLength, const T* kernel,
                                uint32_t transformLength, T* overlap, bool hasTail) {
    filters.ConvolveBand(spectrum, blockLength, kernel, transformLength, overlap, hasTail);
}

template <typename T>
void BandSpliter<T>::Reset() {
    tails.Clear();
}

template <typename T>
void BandSpliter<T>::ReleaseResources() {
    filters.Release();
    tails = {};
}

template class BandSpliter<float>;
template class BandSpliter<double>;
