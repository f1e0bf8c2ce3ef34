#include "dsp/band_spliter.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <new>

#include "dsp/fir_window.h"

namespace {

// A transform longer than this has no use and its sizes would near the ends of 32 bits.
constexpr uint64_t kMaxTransform = 1U << 30;

template <typename T>
void Scale(T* data, uint32_t count, uint32_t n) {
    const double factor = 2.0 / n;
    for (uint32_t i = 0; i < count; ++i)
        data[i] = static_cast<T>(static_cast<double>(data[i]) * factor);
}

}  // namespace

template <typename T>
BandSpliter<T>::BandSpliter() = default;

template <typename T>
BandSpliter<T>::~BandSpliter() = default;

template <typename T>
uint32_t BandSpliter<T>::GetDataLength(uint32_t kernelLength) {
    const uint64_t K = kernelLength;
    const uint64_t N = std::bit_ceil(2 * (K + 32) + K - 1);
    return N <= kMaxTransform ? static_cast<uint32_t>(N - (K - 1)) : 0;
}

template <typename T>
bool BandSpliter<T>::SetParameter(uint32_t windowType, uint32_t kernelLength,
                                  uint32_t samplingRateHz, T lowCutoff, T highCutoff) {
    const uint32_t K = kernelLength;
    if (K < 3 || K % 2 == 0 || samplingRateHz == 0 || GetDataLength(K) == 0) return false;
    if (!std::isfinite(lowCutoff) || !std::isfinite(highCutoff)) return false;
    OwnedArray<T> low, high, band;
    if (!low.Allocate(K) || !high.Allocate(K) || !band.Allocate(K)) return false;
    const int window = static_cast<int>(windowType);
    const T rate = static_cast<T>(samplingRateHz);
    using Design = FIRWindow<T>;
    if (!Design::MakeLowpassFIRCoeffs(window, low.data(), K, rate, lowCutoff) ||
        !Design::MakeHighpassFIRCoeffs(window, high.data(), K, rate, highCutoff) ||
        !Design::MakeBandpassFIRCoeffs(window, band.data(), K, rate, lowCutoff, highCutoff))
        return false;

    ReleaseResources();
    const uint32_t L = GetDataLength(K);
    const uint32_t N = L + K - 1;
    proceedBufferSize = L;
    fftSize = N;
    fft.reset(new (std::nothrow) FFT_R24<T>(N));
    if (!ProcessKernel(low.data(), high.data(), band.data(), K, N) || !lowWork.Allocate(N) ||
        !highWork.Allocate(N) || !bandWork.Allocate(N) || !fft || !fft->Prepared() ||
        !PrepareBuffer()) {
        ReleaseResources();
        return false;
    }
    instanceUsable = true;
    return true;
}

template <typename T>
bool BandSpliter<T>::ProcessKernel(const T* low, const T* high, const T* band,
                                   uint32_t kernelLength, uint32_t transformLength) {
    const struct {
        const T* kernel;
        OwnedArray<T>& spectrum;
    } bands[] = {{low, lowKernel}, {high, highKernel}, {band, bandKernel}};
    for (const auto& [kernel, spectrum] : bands) {
        if (!spectrum.Allocate(transformLength)) return false;
        std::memcpy(spectrum.data(), kernel, kernelLength * sizeof(T));
        Scale(spectrum.data(), transformLength, transformLength);
        // The first transform builds the tables: here rather than with the first block of audio.
        if (fft && fft->Prepared() && fft->length == transformLength)
            CvFFTCreated(spectrum.data(), transformLength, false, false);
        else if (!CvFFTRealTime(spectrum.data(), transformLength, false, false))
            return false;
    }
    return true;
}

template <typename T>
bool BandSpliter<T>::PrepareBuffer() {
    const uint32_t L = proceedBufferSize, N = fftSize;
    if (L == 0 || !std::has_single_bit(N)) return false;
    return lowOverlap.Allocate(N - L) && highOverlap.Allocate(N - L) && bandOverlap.Allocate(N - L);
}

template <typename T>
bool BandSpliter<T>::CvFFTRealTime(T* data, uint32_t n, bool inverse, bool scale) {
    FFT_R24<T> transform(n);
    if (!transform.Prepared()) return false;
    FFT_R24<T>::rdft(static_cast<int>(n), inverse ? -1 : 1, data, transform.ip.data(),
                     transform.w.data());
    if (scale) Scale(data, n, n);
    return true;
}

template <typename T>
void BandSpliter<T>::CvFFTCreated(T* data, uint32_t n, bool inverse, bool scale) {
    if (!fft || !fft->Prepared()) return;
    FFT_R24<T>::rdft(static_cast<int>(fft->length), inverse ? -1 : 1, data, fft->ip.data(),
                     fft->w.data());
    if (scale) Scale(data, n, n);
}

template <typename T>
uint32_t BandSpliter<T>::ConvolveInterleaved(const T* input, T* lowOutput, T* highOutput,
                                             T* bandOutput, uint32_t frames, uint32_t stride) {
    const uint32_t L = proceedBufferSize, N = fftSize;
    if (frames != L || !instanceUsable) return frames;
    for (size_t i = 0; i < L; ++i) lowWork[i] = input[i * stride];
    std::fill_n(lowWork.data() + L, N - L, T(0));
    CvFFTCreated(lowWork.data(), N, false, false);
    std::memcpy(highWork.data(), lowWork.data(), N * sizeof(T));
    std::memcpy(bandWork.data(), lowWork.data(), N * sizeof(T));
    ConvSignal(lowWork.data(), L, lowKernel.data(), N, lowOverlap.data(), primed);
    ConvSignal(highWork.data(), L, highKernel.data(), N, highOverlap.data(), primed);
    ConvSignal(bandWork.data(), L, bandKernel.data(), N, bandOverlap.data(), primed);
    primed = true;
    for (size_t i = 0; i < L; ++i) {
        lowOutput[i * stride] = lowWork[i];
        highOutput[i * stride] = highWork[i];
        bandOutput[i * stride] = bandWork[i];
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
    primed = false;
    std::fill_n(lowOverlap.data(), lowOverlap.size(), T(0));
    std::fill_n(highOverlap.data(), highOverlap.size(), T(0));
    std::fill_n(bandOverlap.data(), bandOverlap.size(), T(0));
}

template <typename T>
void BandSpliter<T>::ReleaseResources() {
    fft.reset();
    for (OwnedArray<T>* array : {&lowKernel, &highKernel, &bandKernel, &lowOverlap, &highOverlap,
                                 &bandOverlap, &lowWork, &highWork, &bandWork})
        array->Release();
    fftSize = 0;
    proceedBufferSize = 0;
    instanceUsable = false;
    primed = false;
}

template class BandSpliter<float>;
template class BandSpliter<double>;
