#include "dsp/fir_window.h"

#include <cmath>
#include <cstddef>
#include <iterator>

#include "dsp/owned_array.h"

namespace {

constexpr double kPi = 3.141592653589793;
// The doubles nearest to 2 pi, 4 pi, 6 pi and 8 pi.
constexpr double kTwoPi = 6.283185307179586;
constexpr double kTurns[] = {kTwoPi, 12.566370614359172, 0x1.2d97c7f3321d2p+4, 25.132741228718345};

// The windows that are sums of cosines: first the constant, then the factor of each cosine. A 0
// ends the factors.
struct CosineSum {
    int windowType;
    double factors[1 + std::size(kTurns)];
};
constexpr CosineSum kCosineSums[] = {
    {2, {0.53836, -0.46164}},
    {10, {0.42, -0.5, 0.08}},
    {11, {0.355768, -0.487396, 0.144232, -0.012604}},
    {12, {0.35875, -0.48829, 0.14128, -0.01168}},
    {13, {0.3635819, -0.4891755, 0.1365995, -0.0106411}},
    {14, {1, -1.93, 1.29, -0.388, 0.032}},
};

// Returns weight n of a window of N weights. M is N - 1 and at least 1.
double Weight(int windowType, double n, double N, double M) {
    const auto cosine = [n, M](double turns) { return std::cos(n * turns / M); };
    for (const CosineSum& sum : kCosineSums) {
        if (sum.windowType != windowType) continue;
        double weight = sum.factors[0];
        for (size_t k = 0; k < std::size(kTurns) && sum.factors[k + 1] != 0; ++k)
            weight += sum.factors[k + 1] * cosine(kTurns[k]);
        return weight;
    }
    switch (windowType) {
        case 3:
            return 0.5 * (1 - cosine(kTwoPi));
        case 4:
            return std::sin(kPi * n / M);
        case 5: {
            const double x = kPi * (2 * n / M - 1);
            return x == 0 ? 1 : std::sin(x) / x;
        }
        case 6:
            return (2 / M) * (M / 2 - std::fabs(n - M / 2));
        case 7:
            return (2 / N) * (N / 2 - std::fabs(n - M / 2));
        case 8: {
            constexpr double kSigma = 0.3;
            const double t = (n - M / 2) / (kSigma * M * 0.5);
            return std::exp(-0.5 * (t * t));
        }
        case 9:
            return 0.62 - 0.48 * std::fabs(n / M - 0.5) - 0.38 * cosine(kTwoPi);
        default:
            return 1;
    }
}

bool IsKernelLength(unsigned int length) {
    return length >= 3 && length % 2 != 0;
}

template <typename T>
void SubtractFromImpulse(T* coeffs, unsigned int length) {
    for (unsigned int i = 0; i < length; ++i) coeffs[i] = -coeffs[i];
    coeffs[(length - 1) / 2] += 1;
}

}  // namespace

template <typename T>
bool FIRWindow<T>::MakeWindowCoeffs(int windowType, T* coeffs, unsigned int length) {
    if (coeffs == nullptr || length == 0) return false;
    const double N = length;
    for (unsigned int n = 0; n < length; ++n)
        coeffs[n] = length == 1 ? T(1) : static_cast<T>(Weight(windowType, n, N, N - 1));
    return true;
}

template <typename T>
bool FIRWindow<T>::MakeLowpassFIRCoeffs(int windowType, T* coeffs, unsigned int length,
                                        T samplingRate, T cutoff) {
    if (coeffs == nullptr || !IsKernelLength(length)) return false;
    const T omega = static_cast<T>(kTwoPi * static_cast<double>(cutoff)) / samplingRate;
    MakeWindowCoeffs(windowType, coeffs, length);
    const unsigned int centre = (length - 1) / 2;
    for (unsigned int i = 0; i < length; ++i) {
        if (i == centre) continue;
        const double m = static_cast<double>(i) - static_cast<double>(centre);
        const T angle = omega * static_cast<T>(m);
        coeffs[i] *= static_cast<T>(std::sin(static_cast<double>(angle)) / (kPi * m));
    }
    coeffs[centre] = static_cast<T>(static_cast<double>(omega) / kPi);
    return true;
}

template <typename T>
bool FIRWindow<T>::MakeHighpassFIRCoeffs(int windowType, T* coeffs, unsigned int length,
                                         T samplingRate, T cutoff) {
    if (!MakeLowpassFIRCoeffs(windowType, coeffs, length, samplingRate, cutoff)) return false;
    SubtractFromImpulse(coeffs, length);
    return true;
}

template <typename T>
bool FIRWindow<T>::MakeBandpassFIRCoeffs(int windowType, T* coeffs, unsigned int length,
                                         T samplingRate, T lowCutoff, T highCutoff) {
    if (coeffs == nullptr || !IsKernelLength(length)) return false;
    OwnedArray<T> low, high;
    if (!low.Allocate(length) || !high.Allocate(length)) return false;
    MakeLowpassFIRCoeffs(windowType, low.data(), length, samplingRate, lowCutoff);
    MakeHighpassFIRCoeffs(windowType, high.data(), length, samplingRate, highCutoff);
    for (unsigned int i = 0; i < length; ++i) coeffs[i] = low[i] + high[i];
    SubtractFromImpulse(coeffs, length);
    return true;
}

template class FIRWindow<float>;
template class FIRWindow<double>;
