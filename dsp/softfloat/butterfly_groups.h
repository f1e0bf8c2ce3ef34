// The transform's groups of radix-4 butterflies, in place: a group is `span` butterflies side by
// side, whose numbers lie `span` apart. Exponents are raised by kAligned for each stage of radix 2
// that is to take a value as the first of a pair ("Exponents that carry the alignment").
//
// The texts are the definition. Where there is a routine by hand, the functions call it.
#pragma once
#include <cstddef>
#include <cstdint>

#include "dsp/butterfly.h"
#include "dsp/softfloat/number.h"

// y by w; false if a product might be subnormal.
[[gnu::always_inline]] inline bool Turned(const SoftTurn& w, Complex<SoftFloat>& y) {
    if (!softfloat::Settles(y.re, y.im)) return false;
    y = Twiddle(w, y);
    return true;
}

[[gnu::always_inline]] inline void StoreButterfly(Complex<SoftFloat>* a, size_t span,
                                                  const Radix4<SoftFloat>& y) {
    a[0] = y.y0;
    a[span] = y.y1;
    a[2 * span] = y.y2;
    a[3 * span] = y.y3;
}

inline void UntwiddledGroupText(Complex<SoftFloat>* a, size_t span) {
    for (const Complex<SoftFloat>* const end = a + span; a != end; ++a)
        StoreButterfly(a, span, Untwiddled(a[0], a[span], a[2 * span], a[3 * span]));
}

// False, with the numbers in any state, if a product might be subnormal; so the next.
inline bool EighthGroupText(Complex<SoftFloat>* a, size_t span, SoftFactor u) {
    for (const Complex<SoftFloat>* const end = a + span; a != end; ++a) {
        Radix4<SoftFloat> y = EighthTurn(a[0], a[span], a[2 * span], a[3 * span], u);
        // A product that could be multiplied again came from no number that is too small.
        if (!softfloat::Settles(y.y1.re, y.y1.im) || !softfloat::Settles(y.y3.re, y.y3.im))
            return false;
        StoreButterfly(a, span, y);
    }
    return true;
}

// `groups` groups, at least one, one after the other, with the factors w[0], w[1], ...
inline bool TwiddledGroupsText(Complex<SoftFloat>* a, size_t span, const SoftTwiddles* w,
                               size_t groups) {
    for (; groups != 0; --groups, ++w, a += 3 * span) {
        for (const Complex<SoftFloat>* const end = a + span; a != end; ++a) {
            Radix4<SoftFloat> y = Untwiddled(a[0], a[span], a[2 * span], a[3 * span]);
            if (!Turned(w->w1, y.y1) || !Turned(w->w2, y.y2) || !Turned(w->w3, y.y3)) return false;
            StoreButterfly(a, span, y);
        }
    }
    return true;
}

// The last stage, of radix 2: sums and differences of `count` numbers, an even count, and those
// `count` further on.
inline void LastStageText(SoftFloat* a, size_t count) {
    for (const SoftFloat* const end = a + count; a != end; ++a) {
        const auto [sum, difference] = StagePair(a[0], a[count]);
        a[0] = sum;
        a[count] = difference;
    }
}

#if defined(ORVANE_SOFTFLOAT_ASSEMBLY)
extern "C" void SoftLastStage(SoftFloat* a, size_t count);
extern "C" void SoftUntwiddledGroup(Complex<SoftFloat>* a, size_t span);
extern "C" bool SoftEighthGroup(Complex<SoftFloat>* a, size_t span, int32_t m, int32_t e);
extern "C" bool SoftTwiddledButterflies(Complex<SoftFloat>* a, const SoftTwiddles* w,
                                        size_t groups);
extern "C" bool SoftTwiddledGroups(Complex<SoftFloat>* a, size_t span, const SoftTwiddles* w,
                                   size_t groups);
inline void UntwiddledGroup(Complex<SoftFloat>* a, size_t span) {
    SoftUntwiddledGroup(a, span);
}
inline bool EighthGroup(Complex<SoftFloat>* a, size_t span, SoftFactor u) {
    return SoftEighthGroup(a, span, u.m, u.e);
}
inline bool TwiddledGroups(Complex<SoftFloat>* a, size_t span, const SoftTwiddles* w,
                           size_t groups) {
    return span == 1 ? SoftTwiddledButterflies(a, w, groups)
                     : SoftTwiddledGroups(a, span, w, groups);
}
inline void LastStage(SoftFloat* a, size_t count) {
    SoftLastStage(a, count);
}
#else
inline void UntwiddledGroup(Complex<SoftFloat>* a, size_t span) {
    UntwiddledGroupText(a, span);
}
inline bool EighthGroup(Complex<SoftFloat>* a, size_t span, SoftFactor u) {
    return EighthGroupText(a, span, u);
}
inline bool TwiddledGroups(Complex<SoftFloat>* a, size_t span, const SoftTwiddles* w,
                           size_t groups) {
    return TwiddledGroupsText(a, span, w, groups);
}
inline void LastStage(SoftFloat* a, size_t count) {
    LastStageText(a, count);
}
#endif
