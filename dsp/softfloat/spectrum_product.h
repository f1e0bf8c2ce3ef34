// Turns the spectrum of complex values into that of the real samples which they consist of.
// Multiplies it by a kernel's spectrum and goes back to the spectrum from which the inverse
// transform starts.
//
// The functions named ...Portable are the definition. The names without it mean the assembly
// version where there is one.
#pragma once
#include <cstddef>

#include "dsp/butterfly.h"
#include "dsp/softfloat/number.h"
#include "dsp/softfloat/offsets.h"

// For values k (left) and half - k (right): the factor of the step between the spectra of complex
// and of real values, and the places at which the two enter the inverse transform. There the right
// one's exponents must be raised by `raised` more than the left one's. Assembly reads this: see
// offsets.h.
struct MirroredPlaces {
    SoftTurn w;
    Complex<SoftFloat>* right;
    int8_t raised;
    uint8_t zero;           // lies below leftFromRight in the word that assembly shifts
    int16_t leftFromRight;  // in values
};

// A kernel's factors for values k and half - k. Assembly reads this: see offsets.h.
struct MirroredTurns {
    SoftTurn left, right;
};

// For 0 < k < half / 2, replaces values k (left) and half - k (right):
//   y = w (left - conj(right)),  left - y and right + conj(y)
// Returns false, with `a` in any state, if y or a result has a number too small for products.
inline bool RealStepPortable(Complex<SoftFloat>* a, const MirroredPlaces* places, size_t half) {
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

// For 0 < k < half / 2, multiplies values k and half - k by the kernel (left and right), then
// computes
//   y = conj(w) (left - conj(right)),  left - y and right + conj(y)
// and stores both at their places with real and imaginary parts exchanged. The exponents of
// kernel[k].left are raised by kAligned, so that y and left - y need no addition to align. Settles
// must hold for the spectrum's numbers. Returns false, with the places in any state, if y has a
// number too small for products.
inline bool SpectrumProductPortable(const Complex<SoftFloat>* spectrum, const MirroredTurns* kernel,
                                    const MirroredPlaces* places, size_t half) {
    for (size_t k = 1; k < half / 2; ++k) {
        const Complex<SoftFloat> left = Twiddle(kernel[k].left, spectrum[k]);
        const Complex<SoftFloat> right = Twiddle(kernel[k].right, spectrum[half - k]);
        Complex<SoftFloat> y = {left.re - AsLowered(right.re), left.im + AsLowered(right.im)};
        if (!softfloat::Settles(y.re, y.im)) return false;
        y = Twiddle(Conjugate(places[k].w), y);
        places[k].right[places[k].leftFromRight] = {left.im - AsLowered(y.im),
                                                    left.re - AsLowered(y.re)};
        *places[k].right = {Raised(right.im - y.im, places[k].raised),
                            Raised(right.re + y.re, places[k].raised)};
    }
    return true;
}

#if defined(ORVANE_SOFTFLOAT_ASSEMBLY)
extern "C" bool SoftRealStep(Complex<SoftFloat>* a, const MirroredPlaces* places, size_t half);
extern "C" bool SoftSpectrumProduct(const Complex<SoftFloat>* spectrum, const MirroredTurns* kernel,
                                    const MirroredPlaces* places, size_t half);
static_assert(sizeof(MirroredPlaces) == MIRRORED_PLACES_SIZE &&
              offsetof(MirroredPlaces, right) == MIRRORED_PLACES_RIGHT &&
              offsetof(MirroredPlaces, raised) == MIRRORED_PLACES_RAISED &&
              offsetof(MirroredPlaces, leftFromRight) == MIRRORED_PLACES_RAISED + 2);
static_assert(sizeof(MirroredTurns) == MIRRORED_TURNS_SIZE &&
              offsetof(MirroredTurns, right) == MIRRORED_TURNS_RIGHT);
inline constexpr auto& RealStep = SoftRealStep;
inline constexpr auto& SpectrumProduct = SoftSpectrumProduct;
#else
inline constexpr auto& RealStep = RealStepPortable;
inline constexpr auto& SpectrumProduct = SpectrumProductPortable;
#endif
