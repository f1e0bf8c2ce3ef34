// Window functions and windowed-sinc FIR kernels (window method: A. V. Oppenheim, R. W. Schafer,
// Discrete-Time Signal Processing, "Design of FIR Filters by Windowing").
//
// A kernel has an odd number of taps, at least 3, and is symmetric about its centre tap c: linear
// phase, delay c samples. Taps are not normalised: the gain at 0 Hz is the sum of the windowed
// taps. Low-pass and high-pass of one cut-off add up to a unit impulse at c, and so do low-pass
// (lowCutoff), band-pass and high-pass (highCutoff).
//
// Stateless. Allocates: MakeBandpassFIRCoeffs only. Any thread.
#pragma once
#include <cstdint>

#include "platform/export.h"

// T: type of the coefficients and frequencies. Window weights are computed in double in any case.
template <typename T>
class ORVANE_API FIRWindow {
public:
    // Writes `length` weights. windowType: 2 Hamming, 3 Hann, 4 sine, 5 Lanczos, 6 Bartlett,
    // 7 triangular, 8 Gaussian, 9 Bartlett-Hann, 10 Blackman, 11 Nuttall, 12 Blackman-Harris,
    // 13 Blackman-Nuttall, 14 flat top, every other value rectangular. A single weight is 1.
    // False, and nothing is written, for a null array or no length.
    static bool MakeWindowCoeffs(int windowType, T* coeffs, unsigned int length);

    // Kernels; cut-offs and samplingRate in Hz. False, and nothing is written, for a null array, a
    // length below 3, an even length, or (band-pass) refused memory.
    static bool MakeLowpassFIRCoeffs(int windowType, T* coeffs, unsigned int length, T samplingRate,
                                     T cutoff);
    static bool MakeHighpassFIRCoeffs(int windowType, T* coeffs, unsigned int length,
                                      T samplingRate, T cutoff);
    // lowCutoff above highCutoff gives the negated band-pass between the two.
    static bool MakeBandpassFIRCoeffs(int windowType, T* coeffs, unsigned int length,
                                      T samplingRate, T lowCutoff, T highCutoff);
};

extern template class FIRWindow<float>;
extern template class FIRWindow<double>;
using FIRWindow_R32R32 = FIRWindow<float>;
using FIRWindow_R64R64 = FIRWindow<double>;
