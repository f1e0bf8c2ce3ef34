#include "dsp/band_spliter.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace {

template <typename T>
void Scale(T* data, uint32_t n) {
    const double factor = 2.0 / n;
    for (uint32_t i = 0; i < n; ++i)
        data[i] = static_cast<T>(static_cast<double>(data[i]) * factor);
}

}  // namespace

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
    if (!designed && InstanceUsable()) return false;
    const uint32_t N = filters.TransformLength();
    bool granted = designed && PrepareBuffer();
    for (OwnedArray<T>& each : work) granted = granted && each.Allocate(N);
    if (granted) fft.reset(new (std::nothrow) FFT_R24<T>(N));
    if (!granted || !fft || !fft->Prepared()) {
        ReleaseResources();
        return false;
    }
    tails.Clear();
    return true;
}

template <typename T>
bool BandSpliter<T>::ProcessKernel(const T* low, const T* high, const T* band,
                                   uint32_t kernelLength, uint32_t transformLength) {
    if (!InstanceUsable()) return true;
    if (transformLength != GetFFTSize() || kernelLength > transformLength) return false;
    filters.SetKernels({low, high, band}, kernelLength);
    return true;
}

template <typename T>
bool BandSpliter<T>::PrepareBuffer() {
    return filters.BlockLength() != 0 && tails.Allocate(filters.TailLength());
}

template <typename T>
bool BandSpliter<T>::CvFFTRealTime(T* data, uint32_t n, bool inverse, bool scale) {
    FFT_R24<T> transform(n);
    if (!transform.Prepared()) return false;
    FFT_R24<T>::rdft(static_cast<int>(n), inverse ? -1 : 1, data, transform.ip.data(),
                     transform.w.data());
    if (scale) Scale(data, n);
    return true;
}

template <typename T>
void BandSpliter<T>::CvFFTCreated(T* data, uint32_t n, bool inverse, bool scale) {
    if (!fft) return;
    FFT_R24<T>::rdft(static_cast<int>(fft->length), inverse ? -1 : 1, data, fft->ip.data(),
                     fft->w.data());
    if (scale) Scale(data, n);
}

template <typename T>
uint32_t BandSpliter<T>::ConvolveInterleaved(const T* input, T* lowOutput, T* highOutput,
                                             T* bandOutput, uint32_t frames, uint32_t stride) {
    if (frames != filters.BlockLength() || !InstanceUsable()) return frames;
    const Planar<T> block = Work(kHighBand);
    const size_t pairs = frames / 2;
    for (size_t q = 0; q < pairs; ++q) {
        block.re[q] = input[2 * q * stride];
        block.im[q] = input[(2 * q + 1) * stride];
    }
    filters.Split(tails, block, {Work(kLowBand), block, Work(kMiddleBand)});
    T* const outputs[kBands] = {lowOutput, highOutput, bandOutput};
    for (size_t b = 0; b < kBands; ++b)
        for (size_t q = 0; q < pairs; ++q) {
            outputs[b][2 * q * stride] = Work(b).re[q];
            outputs[b][(2 * q + 1) * stride] = Work(b).im[q];
        }
    return frames;
}

template <typename T>
void BandSpliter<T>::ConvSignal(T* spectrum, uint32_t blockLength, const T* kernel,
                                uint32_t transformLength, T* overlap, bool hasTail) {
    spectrum[0] *= kernel[0];
    spectrum[1] *= kernel[1];
    for (size_t j = 2; j < transformLength; j += 2) {
        const T ar = spectrum[j], ai = spectrum[j + 1];
        const T kr = kernel[j], ki = kernel[j + 1];
        spectrum[j] = ar * kr - ai * ki;
        spectrum[j + 1] = ai * kr + ki * ar;
    }
    CvFFTCreated(spectrum, transformLength, true, false);
    const size_t tail = transformLength - blockLength;
    if (hasTail)
        for (size_t i = 0; i < tail; ++i) spectrum[i] += overlap[i];
    std::memcpy(overlap, spectrum + blockLength, tail * sizeof(T));
}

template <typename T>
void BandSpliter<T>::Reset() {
    tails.Clear();
}

template <typename T>
void BandSpliter<T>::ReleaseResources() {
    filters.Release();
    tails = {};
    for (OwnedArray<T>& each : work) each.Release();
    fft.reset();
}

template class BandSpliter<float>;
template class BandSpliter<double>;
