// The transform's groups of radix-4 butterflies, in place. A group is `span` neighbouring
// butterflies whose four values are `span` apart. Exponents are raised by kAligned for each later
// radix-2 stage in which a value is the first operand ("Exponents that carry the alignment").
//
// The functions named ...Portable are the definition. The names without it mean the assembly
// version where there is one.
#pragma once
#include <cstddef>
#include <cstdint>

#include "dsp/butterfly.h"
#include "dsp/softfloat/number.h"
#include "dsp/softfloat/offsets.h"

// Replaces y by w * y. Returns false, and changes nothing but exponents of zeros, if a product
// might be subnormal.
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

inline void UntwiddledGroupPortable(Complex<SoftFloat>* a, size_t span) {
    for (const Complex<SoftFloat>* const end = a + span; a != end; ++a)
        StoreButterfly(a, span, Untwiddled(a[0], a[span], a[2 * span], a[3 * span]));
}

// Returns false, with the numbers in any state, if a product might be subnormal.
inline bool EighthGroupPortable(Complex<SoftFloat>* a, size_t span, SoftFactor u) {
    for (const Complex<SoftFloat>* const end = a + span; a != end; ++a) {
        Radix4<SoftFloat> y = EighthTurn(a[0], a[span], a[2 * span], a[3 * span], u);
        // If the products are large enough to be multiplied again, their operands were too.
        if (!softfloat::Settles(y.y1.re, y.y1.im) || !softfloat::Settles(y.y3.re, y.y3.im))
            return false;
        StoreButterfly(a, span, y);
    }
    return true;
}

// Processes `groups` consecutive groups (at least one) with the factors w[0], w[1], ... Returns
// false, with the numbers in any state, if a product might be subnormal.
inline bool TwiddledGroupsPortable(Complex<SoftFloat>* a, size_t span, const SoftTwiddles* w,
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

// The last radix-2 stage: replaces the first `count` numbers and the next `count` numbers by their
// sums and differences. `count` is even.
inline void LastStagePortable(SoftFloat* a, size_t count) {
    for (const SoftFloat* const end = a + count; a != end; ++a) {
        const auto [sum, difference] = StagePair(a[0], a[count]);
        a[0] = sum;
        a[count] = difference;
    }
}

#if defined(ORVANE_SOFTFLOAT_ASSEMBLY)
static_assert(offsetof(SoftTwiddles, w1) == TWIDDLES_W1 &&
              offsetof(SoftTwiddles, w2) == TWIDDLES_W2 &&
              offsetof(SoftTwiddles, w3) == TWIDDLES_W3 && sizeof(SoftTwiddles) == TWIDDLES_SIZE);
extern "C" void SoftLastStage(SoftFloat* a, size_t count);
extern "C" void SoftUntwiddledGroup(Complex<SoftFloat>* a, size_t span);
extern "C" bool SoftEighthGroup(Complex<SoftFloat>* a, size_t span, int32_t m, int32_t e);
extern "C" bool SoftTwiddledButterflies(Complex<SoftFloat>* a, const SoftTwiddles* w,
                                        size_t groups);
extern "C" bool SoftTwiddledGroups(Complex<SoftFloat>* a, size_t span, const SoftTwiddles* w,
                                   size_t groups);
inline constexpr auto& UntwiddledGroup = SoftUntwiddledGroup;
inline constexpr auto& LastStage = SoftLastStage;
inline bool EighthGroup(Complex<SoftFloat>* a, size_t span, SoftFactor u) {
    return SoftEighthGroup(a, span, u.m, u.e);
}
inline bool TwiddledGroups(Complex<SoftFloat>* a, size_t span, const SoftTwiddles* w,
                           size_t groups) {
    return span == 1 ? SoftTwiddledButterflies(a, w, groups)
                     : SoftTwiddledGroups(a, span, w, groups);
}
#else
inline constexpr auto& UntwiddledGroup = UntwiddledGroupPortable;
inline constexpr auto& LastStage = LastStagePortable;
inline constexpr auto& EighthGroup = EighthGroupPortable;
inline constexpr auto& TwiddledGroups = TwiddledGroupsPortable;
#endif
