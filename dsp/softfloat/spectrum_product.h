// From the spectrum of complex values to that of the real ones which they are made of; its product
// with a kernel's, and the way back to the spectrum that the inverse transform starts from.
#pragma once
#include <cstddef>

#include "dsp/butterfly.h"
#include "dsp/softfloat/number.h"

// Of values k and half - k: the factor of their step between the spectra of complex and of real
// values, and where the inverse transform takes them; the right one's exponents are to be raised by
// `raised` more than the left one's there.
struct MirroredPlaces {
    SoftTurn w;
    Complex<SoftFloat>* right;
    int32_t raised;
    Complex<SoftFloat>* left;
};

// Values k and half - k for 0 < k < half / 2, left and right, in place:
//   y = w (left - conj(right)),  left - y and right + conj(y)
// False, with `a` in any state, if y or a result has a number that can't be factored.
inline bool RealStepText(Complex<SoftFloat>* a, const MirroredPlaces* places, size_t half) {
    for (size_t k = 1; k < half / 2; ++k) {
        Complex<SoftFloat>&left = a[k], &right = a[half - k];
        Complex<SoftFloat> y = {left.re - right.re, left.im + right.im};
        if (!softfloat::Settles(y.re, y.im)) return false;
        y = Twiddle(places[k].w, y);
        left = {left.re - y.re, left.im - y.im};
        right = {right.re + y.re, right.im - y.im};
        if (!softfloat::Settles(left.re, left.im) || !softfloat::Settles(right.re, right.im))
            return false;
    }
    return true;
}

// Values k and half - k for 0 < k < half / 2: the products left and right, then
//   y = conj(w) (left - conj(right)),  left - y and right + conj(y)
// to their places, with real and imaginary part exchanged. The exponents of kernel[k] are kAligned
// more than they mean, so that y needs no alignment, nor left - y. The spectrum's numbers can be
// factored (Settles). False, with the places in any state, if y has one that can't.
inline bool SpectrumProductText(const Complex<SoftFloat>* spectrum, const SoftTurn* kernel,
                                const MirroredPlaces* places, size_t half) {
    for (size_t k = 1; k < half / 2; ++k) {
        const Complex<SoftFloat> left = Twiddle(kernel[k], spectrum[k]);
        const Complex<SoftFloat> right = Twiddle(kernel[half - k], spectrum[half - k]);
        Complex<SoftFloat> y = {left.re - AsLowered(right.re), left.im + AsLowered(right.im)};
        if (!softfloat::Settles(y.re, y.im)) return false;
        y = Twiddle(Conjugate(places[k].w), y);
        *places[k].left = {left.im - AsLowered(y.im), left.re - AsLowered(y.re)};
        *places[k].right = {Raised(right.im - y.im, places[k].raised),
                            Raised(right.re + y.re, places[k].raised)};
    }
    return true;
}

#if defined(ORVANE_SOFTFLOAT_ASSEMBLY)
extern "C" bool SoftRealStep(Complex<SoftFloat>* a, const MirroredPlaces* places, size_t half);
extern "C" bool SoftSpectrumProduct(const Complex<SoftFloat>* spectrum, const SoftTurn* kernel,
                                    const MirroredPlaces* places, size_t half);
static_assert(sizeof(MirroredPlaces) == 32 && offsetof(MirroredPlaces, left) == 24);
#endif

inline bool RealStep(Complex<SoftFloat>* a, const MirroredPlaces* places, size_t half) {
#if defined(ORVANE_SOFTFLOAT_ASSEMBLY)
    return SoftRealStep(a, places, half);
#else
    return RealStepText(a, places, half);
#endif
}

inline bool SpectrumProduct(const Complex<SoftFloat>* spectrum, const SoftTurn* kernel,
                            const MirroredPlaces* places, size_t half) {
#if defined(ORVANE_SOFTFLOAT_ASSEMBLY)
    return SoftSpectrumProduct(spectrum, kernel, places, half);
#else
    return SpectrumProductText(spectrum, kernel, places, half);
#endif
}
