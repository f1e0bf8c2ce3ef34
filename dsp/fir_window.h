// Window functions and windowed-sinc FIR kernels (window method: A. V. Oppenheim, R. W. Schafer,
// Discrete-Time Signal Processing, "Design of FIR Filters by Windowing").
//
// A kernel has an odd number of taps, at least 3, and is symmetric about its centre tap c. So it
// has linear phase and a delay of c samples. Taps are not normalised: the gain at 0 Hz is the sum
// of the windowed taps. A low-pass and a high-pass with the same cut-off add up to a unit impulse
// at c. So do the low-pass (lowCutoff), the band-pass and the high-pass (highCutoff).
//
// Stateless. Allocates: MakeBandpassFIRCoeffs only. Any thread.
#pragma once
#include <cstdint>

#include "platform/export.h"

// T is the type of the coefficients and frequencies. Window weights are always computed in double.
template <typename T>
class ORVANE_API FIRWindow {
public:
    // Writes `length` weights. windowType: 2 Hamming, 3 Hann, 4 sine, 5 Lanczos, 6 Bartlett,
    // 7 triangular, 8 Gaussian, 9 Bartlett-Hann, 10 Blackman, 11 Nuttall, 12 Blackman-Harris,
    // 13 Blackman-Nuttall, 14 flat top, every other value rectangular. A window of length 1 is 1.
    // Returns false, and writes nothing, if the array is null or the length is 0.
    static bool MakeWindowCoeffs(int windowType, T* coeffs, unsigned int length);

    // Design kernels; cut-offs and samplingRate are in Hz. They return false, and write nothing, if
    // the array is null, the length is below 3 or even, or (band-pass) memory is refused.
    static bool MakeLowpassFIRCoeffs(int windowType, T* coeffs, unsigned int length, T samplingRate,
                                     T cutoff);
    static bool MakeHighpassFIRCoeffs(int windowType, T* coeffs, unsigned int length,
                                      T samplingRate, T cutoff);
    // If lowCutoff is above highCutoff, the result is the negated band-pass between the two.
    static bool MakeBandpassFIRCoeffs(int windowType, T* coeffs, unsigned int length,
                                      T samplingRate, T lowCutoff, T highCutoff);
};

extern template class FIRWindow<float>;
extern template class FIRWindow<double>;
using FIRWindow_R32R32 = FIRWindow<float>;
using FIRWindow_R64R64 = FIRWindow<double>;
