// From the spectrum of complex values to that of the real ones which they are made of; its product
// with a kernel's, and the way back to the spectrum that the inverse transform starts from.
#pragma once
#include <cstddef>
#include <cstdint>

#include "dsp/butterfly.h"
#include "dsp/softfloat/number.h"

// Values k and half - k for 0 < k < half / 2, left and right, in place:
//   y = w[k] (left - conj(right)),  left - y and right + conj(y)
// False, with `a` in any state, if y or a result has a number that can't be factored.
inline bool RealStepText(Complex<SoftFloat>* a, const SoftTurn* w, size_t half) {
    for (size_t k = 1; k < half / 2; ++k) {
        Complex<SoftFloat>&left = a[k], &right = a[half - k];
        Complex<SoftFloat> y = {left.re - right.re, left.im + right.im};
        if (!softfloat::Settles(y.re, y.im)) return false;
        y = Twiddle(w[k], y);
        left = {left.re - y.re, left.im - y.im};
        right = {right.re + y.re, right.im - y.im};
        if (!softfloat::Settles(left.re, left.im) || !softfloat::Settles(right.re, right.im))
            return false;
    }
    return true;
}

// Values k and half - k for 0 < k < half / 2: the products left and right, then
//   y = conj(w[k]) (left - conj(right)),  left - y and right + conj(y), conjugated,
// to places reversed[k] and reversed[half - k] of `out`. The spectrum's numbers can be factored
// (Settles). False, with `out` in any state, if y has one that can't.
inline bool SpectrumProductText(const Complex<SoftFloat>* spectrum, const SoftTurn* kernel,
                                const SoftTurn* w, const uint16_t* reversed,
                                Complex<SoftFloat>* out, size_t half) {
    for (size_t k = 1; k < half / 2; ++k) {
        const Complex<SoftFloat> left = Twiddle(kernel[k], spectrum[k]);
        const Complex<SoftFloat> right = Twiddle(kernel[half - k], spectrum[half - k]);
        Complex<SoftFloat> y = {left.re - right.re, left.im + right.im};
        if (!softfloat::Settles(y.re, y.im)) return false;
        y = Twiddle(Conjugate(w[k]), y);
        out[reversed[k]] = {left.re - y.re, y.im - left.im};
        out[reversed[half - k]] = {right.re + y.re, y.im - right.im};
    }
    return true;
}

#if defined(ORVANE_SOFTFLOAT_ASSEMBLY)
extern "C" bool SoftRealStep(Complex<SoftFloat>* a, const SoftTurn* w, size_t half);
extern "C" bool SoftSpectrumProduct(const Complex<SoftFloat>* spectrum, const SoftTurn* kernel,
                                    const SoftTurn* w, const uint16_t* reversed,
                                    Complex<SoftFloat>* out, size_t half);
#endif

inline bool RealStep(Complex<SoftFloat>* a, const SoftTurn* w, size_t half) {
#if defined(ORVANE_SOFTFLOAT_ASSEMBLY)
    return SoftRealStep(a, w, half);
#else
    return RealStepText(a, w, half);
#endif
}

[[gnu::always_inline]] inline bool SpectrumProduct(const Complex<SoftFloat>* spectrum,
                                                   const SoftTurn* kernel, const SoftTurn* w,
                                                   const uint16_t* reversed,
                                                   Complex<SoftFloat>* out, size_t half) {
#if defined(ORVANE_SOFTFLOAT_ASSEMBLY)
    return SoftSpectrumProduct(spectrum, kernel, w, reversed, out, half);
#else
    return SpectrumProductText(spectrum, kernel, w, reversed, out, half);
#endif
}
