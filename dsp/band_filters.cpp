#include "dsp/band_filters.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>
#include <utility>

#include "dsp/fir_window.h"

template <typename T>
bool BandTails<T>::Allocate(size_t length) {
    OwnedArray<T> fresh[3];
    for (OwnedArray<T>& tail : fresh)
        if (!tail.Allocate(length)) return false;
    low = std::move(fresh[0]);
    high = std::move(fresh[1]);
    band = std::move(fresh[2]);
    return true;
}

template <typename T>
void BandTails<T>::Clear() {
    primed = false;
    for (OwnedArray<T>* tail : {&low, &high, &band}) std::fill_n(tail->data(), tail->size(), T(0));
}

template <typename T>
bool BandFilters<T>::Design(uint32_t windowType, uint32_t kernelLength, uint32_t samplingRateHz,
                            T lowCutoff, T highCutoff) {
    const uint32_t K = kernelLength, L = BlockLengthFor(K), N = L + K - 1;
    if (K < 3 || K % 2 == 0 || samplingRateHz == 0 || L == 0) return false;
    if (!std::isfinite(lowCutoff) || !std::isfinite(highCutoff)) return false;
    OwnedArray<T> low, high, band;
    if (!low.Allocate(K) || !high.Allocate(K) || !band.Allocate(K)) return false;
    const int window = static_cast<int>(windowType);
    const T rate = static_cast<T>(samplingRateHz);
    using Window = FIRWindow<T>;
    if (!Window::MakeLowpassFIRCoeffs(window, low.data(), K, rate, lowCutoff) ||
        !Window::MakeHighpassFIRCoeffs(window, high.data(), K, rate, highCutoff) ||
        !Window::MakeBandpassFIRCoeffs(window, band.data(), K, rate, lowCutoff, highCutoff))
        return false;

    Release();
    fft.reset(new (std::nothrow) FFT_R24<T>(N));
    if (!fft || !fft->Prepared() || !lowWork.Allocate(N) || !highWork.Allocate(N) ||
        !bandWork.Allocate(N) || !SetKernels(low.data(), high.data(), band.data(), K, N) ||
        !faster.Prepare(N, fft->w.data(), lowKernel.data(), highKernel.data(), bandKernel.data())) {
        Release();
        return false;
    }
    blockLength = L;
    transformLength = N;
    return true;
}

template <typename T>
void BandFilters<T>::Release() {
    *this = {};
}

template <typename T>
bool BandFilters<T>::SetKernels(const T* low, const T* high, const T* band, uint32_t kernelLength,
                                uint32_t n) {
    const struct {
        const T* kernel;
        OwnedArray<T>& spectrum;
    } bands[] = {{low, lowKernel}, {high, highKernel}, {band, bandKernel}};
    for (const auto& [kernel, spectrum] : bands) {
        if (!spectrum.Allocate(n)) return false;
        std::memcpy(spectrum.data(), kernel, kernelLength * sizeof(T));
        Scale(spectrum.data(), n, n);
        // The first transform builds the tables: here rather than with the first block of audio.
        if (fft && fft->Prepared() && fft->length == n)
            Transform(spectrum.data(), false);
        else if (!TransformOnce(spectrum.data(), n, false))
            return false;
    }
    return true;
}

template <typename T>
bool BandFilters<T>::TransformOnce(T* data, uint32_t n, bool inverse) {
    FFT_R24<T> transform(n);
    if (!transform.Prepared()) return false;
    FFT_R24<T>::rdft(static_cast<int>(n), inverse ? -1 : 1, data, transform.ip.data(),
                     transform.w.data());
    return true;
}

template <typename T>
void BandFilters<T>::Transform(T* data, bool inverse) {
    if (!fft || !fft->Prepared()) return;
    FFT_R24<T>::rdft(static_cast<int>(fft->length), inverse ? -1 : 1, data, fft->ip.data(),
                     fft->w.data());
}

template <typename T>
void BandFilters<T>::Scale(T* data, uint32_t count, uint32_t n) {
    const double factor = 2.0 / n;
    for (uint32_t i = 0; i < count; ++i)
        data[i] = static_cast<T>(static_cast<double>(data[i]) * factor);
}

template <typename T>
void BandFilters<T>::Split(BandTails<T>& tails, const T* input, T* lowOutput, T* highOutput,
                           T* bandOutput, uint32_t stride) {
    const uint32_t L = blockLength, N = transformLength;
    if (!faster.Convolve(input, L, stride, lowWork.data(), highWork.data(), bandWork.data())) {
        for (size_t i = 0; i < L; ++i) lowWork[i] = input[i * stride];
        std::fill_n(lowWork.data() + L, N - L, T(0));
        Transform(lowWork.data(), false);
        std::memcpy(highWork.data(), lowWork.data(), N * sizeof(T));
        std::memcpy(bandWork.data(), lowWork.data(), N * sizeof(T));
        CircularConvolution(lowWork.data(), lowKernel.data(), N);
        CircularConvolution(highWork.data(), highKernel.data(), N);
        CircularConvolution(bandWork.data(), bandKernel.data(), N);
    }
    OverlapAdd(lowWork.data(), L, N, tails.low.data(), tails.primed);
    OverlapAdd(highWork.data(), L, N, tails.high.data(), tails.primed);
    OverlapAdd(bandWork.data(), L, N, tails.band.data(), tails.primed);
    tails.primed = true;
    for (size_t i = 0; i < L; ++i) {
        lowOutput[i * stride] = lowWork[i];
        highOutput[i * stride] = highWork[i];
        bandOutput[i * stride] = bandWork[i];
    }
}

template <typename T>
void BandFilters<T>::ConvolveBand(T* spectrum, uint32_t length, const T* kernel, uint32_t n,
                                  T* tail, bool hasTail) {
    CircularConvolution(spectrum, kernel, n);
    OverlapAdd(spectrum, length, n, tail, hasTail);
}

template <typename T>
void BandFilters<T>::CircularConvolution(T* spectrum, const T* kernel, uint32_t n) {
    spectrum[0] *= kernel[0];
    spectrum[1] *= kernel[1];
    for (size_t j = 2; j < n; j += 2) {
        const T ar = spectrum[j], ai = spectrum[j + 1];
        const T kr = kernel[j], ki = kernel[j + 1];
        spectrum[j] = ar * kr - ai * ki;
        spectrum[j + 1] = ai * kr + ki * ar;
    }
    Transform(spectrum, true);
}

template <typename T>
void BandFilters<T>::OverlapAdd(T* convolution, uint32_t length, uint32_t n, T* tail,
                                bool hasTail) {
    const size_t tailLength = n - length;
    if (hasTail)
        for (size_t i = 0; i < tailLength; ++i) convolution[i] += tail[i];
    std::memcpy(tail, convolution + length, tailLength * sizeof(T));
}

template struct BandTails<float>;
template struct BandTails<double>;
template class BandFilters<float>;
template class BandFilters<double>;
