// Groups of twiddled radix-4 butterflies, in place.
#pragma once
#include <cassert>
#include <cstddef>
#include <cstdint>

#include "dsp/butterfly.h"
#include "dsp/softfloat/number.h"

// y by w; false if a product might be subnormal.
[[gnu::always_inline]] inline bool Turned(const Complex<SoftFactor>& w, Complex<SoftFloat>& y) {
    if (!softfloat::Settles(y.re, y.im)) return false;
    y = Twiddle(w, y);
    return true;
}

// `groups` groups one after the other, each of `span` butterflies whose numbers lie `span` apart,
// with the factors w[0], w[1], ... False, with the numbers in any state, if one is too small for a
// product.
inline bool TwiddledGroupsText(Complex<SoftFloat>* a, size_t span, const Twiddles<SoftFactor>* w,
                               size_t groups) {
    for (; groups != 0; --groups, ++w, a += 3 * span) {
        for (const Complex<SoftFloat>* const end = a + span; a != end; ++a) {
            Radix4<SoftFloat> y = Untwiddled(a[0], a[span], a[2 * span], a[3 * span]);
            if (!Turned(w->w1, y.y1) || !Turned(w->w2, y.y2) || !Turned(w->w3, y.y3)) return false;
            a[0] = y.y0;
            a[span] = y.y1;
            a[2 * span] = y.y2;
            a[3 * span] = y.y3;
        }
    }
    return true;
}

#if defined(ORVANE_SOFTFLOAT_ASSEMBLY)
extern "C" bool SoftTwiddledGroups(Complex<SoftFloat>* a, size_t span,
                                   const Twiddles<SoftFactor>* w, size_t groups);
#endif

[[gnu::always_inline]] inline bool TwiddledGroups(Complex<SoftFloat>* a, size_t span,
                                                  const Twiddles<SoftFactor>* w, size_t groups) {
#if defined(ORVANE_SOFTFLOAT_ASSEMBLY)
    // Pairs of words are loaded at once.
    assert(reinterpret_cast<uintptr_t>(a) % 8 == 0 && groups != 0);
    return SoftTwiddledGroups(a, span, w, groups);
#else
    return TwiddledGroupsText(a, span, w, groups);
#endif
}
