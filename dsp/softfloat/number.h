// Unpacked floats: single-precision numbers for processors without a floating-point unit. Sign and
// significand are in one word and the exponent in another, so that a chain of operations need not
// unpack and pack. docs/soft-float.md explains all of this; a name in quotes below is one of its
// sections. It begins with "A number" and ends with "What stays on floats".
//
//   SoftFloat {m, e} is m * 2^(e - 109). m has 24 significant bits at bits 29 to 6; the rest is 0.
//   2^29 <= |m| <= 2^30, both ends allowed, so rounding up never changes the exponent. Zero is m =
//   0 with any e, and has no sign.
//
// Sums and products have the bits of IEEE 754 single precision (round to nearest, ties to even),
// but for the sign of a zero. This holds if no result overflows and no product is subnormal. Sums
// below the normal range are exact in both. The caller ensures this: only numbers from 2^-80 to
// 2^60 enter (Enters). Before a product of a number that may have e < 0, which is below 2^-80, it
// calls Settles.
//
// Allocates: never. Thread: no state.
#pragma once
#include <algorithm>
#include <bit>
#include <cstdint>

#include "dsp/butterfly.h"

// True if the chain computes single precision with unpacked floats: on processors without a
// floating-point unit, or as the build says.
#if defined(ORVANE_SOFTFLOAT)
inline constexpr bool kSoftFloat = ORVANE_SOFTFLOAT;
#elif defined(__arm__) && defined(__SOFTFP__)
inline constexpr bool kSoftFloat = true;
#else
inline constexpr bool kSoftFloat = false;
#endif

// Aligned to 8 bytes: the assembly version loads both words at once. Processors need the alignment
// for that; an emulator accepts any address.
struct alignas(8) SoftFloat {
    int32_t m, e;
};

// A constant factor: m * 2^(e - 31), with 24 significant bits of m at bits 30 to 7. Its magnitude
// is 0 or 2^-46 to 2^30, so that its product with a number of at least 2^-80 is never subnormal.
struct alignas(8) SoftFactor {
    int32_t m, e;
};

inline SoftFactor operator-(SoftFactor a) {
    return {-a.m, a.e};
}

namespace softfloat {

inline constexpr int32_t kBias = 47;    // exponent field of a float minus e
inline constexpr int32_t kAligned = 3;  // right shift of a sum's first operand, in bits

// ARM's clz accepts 0 and its shifts accept 32; in C++ such shifts are undefined.
#if defined(__arm__) && !defined(__thumb__)
#define ORVANE_SOFTFLOAT_ARM
#endif

// Returns v * 2^e (|v| < 2^30) as a number: moves the highest bit to bit 29 and rounds the six
// lowest bits away. "Normalise and round".
[[gnu::always_inline]] inline SoftFloat Rounded(int32_t v, int32_t e) {
#if defined(ORVANE_SOFTFLOAT_ARM)
    int32_t shift;
    asm("eor    %[shift], %[v], %[v], lsl #2\n\t"
        "clz    %[shift], %[shift]\n\t"
        "mov    %[v], %[v], lsl %[shift]\n\t"
        "sub    %[e], %[e], %[shift]\n\t"
        "movs   %[shift], %[v], lsr #7\n\t"  // the last kept bit is the carry
        "adc    %[v], %[v], #31\n\t"
        "bic    %[v], %[v], #63"
        : [v] "+r"(v), [e] "+r"(e), [shift] "=&r"(shift)
        :
        : "cc");
    return {v, e};
#else
    const uint32_t bits = static_cast<uint32_t>(v);
    const int shift = std::countl_zero(bits ^ (bits << 2U));
    const uint32_t normal = shift < 32 ? bits << shift : 0;
    const uint32_t rounded = normal + 31 + ((normal >> 6U) & 1U);
    return {static_cast<int32_t>(rounded & ~63U), e - shift};
#endif
}

// Returns v / 2^shift rounded down; shift is 0 to 255. Sets the lowest bit if any bit was lost (a
// sticky bit), so that later roundings are still correct.
[[gnu::always_inline]] inline int32_t ShiftedWithSticky(int32_t v, int32_t shift) {
#if defined(ORVANE_SOFTFLOAT_ARM)
    int32_t shifted;
    asm("mov    %[shifted], %[v], asr %[shift]\n\t"
        "cmp    %[v], %[shifted], lsl %[shift]\n\t"
        "orrne  %[shifted], %[shifted], #1"
        : [shifted] "=&r"(shifted)
        : [v] "r"(v), [shift] "r"(shift)
        : "cc");
    return shifted;
#else
    const int32_t within = std::min(shift, 31);
    const int32_t shifted = v >> within;
    return shifted | static_cast<int32_t>((shifted << within) != v);
#endif
}

// Two operands in the same unit, 2^(e - 109); their sum and difference are below 2^30. "The near
// window".
struct Aligned {
    int32_t a, b, e;
};
// Aligns a and b. `e` is the exponent that a has after the shift by kAligned: a.e + kAligned, or
// a.e if b's exponent is lowered. Exponents of numbers other than 0 must be less than 250 apart.
[[gnu::always_inline]] inline Aligned Align(SoftFloat a, SoftFloat b, int32_t e) {
    const int32_t shift = e - b.e;
    const int32_t first = a.m >> kAligned;
    // The near window: no bit is lost, and zeros need no care.
    if (static_cast<uint32_t>(shift - 1) <= 5U) [[likely]]
        return {first, b.m >> shift, e};
    if (shift > 0) {
        if (a.m == 0) [[unlikely]]
            return {0, b.m >> kAligned, b.e + kAligned};
        return {first, ShiftedWithSticky(b.m, shift), e};
    }
    if (b.m == 0) [[unlikely]]
        return {first, 0, e};
    return {ShiftedWithSticky(a.m, 2 * kAligned - shift), b.m >> kAligned, b.e + kAligned};
}

}  // namespace softfloat

[[gnu::always_inline]] inline SoftFloat operator+(SoftFloat a, SoftFloat b) {
    const softfloat::Aligned v = softfloat::Align(a, b, a.e + softfloat::kAligned);
    return softfloat::Rounded(v.a + v.b, v.e);
}
[[gnu::always_inline]] inline SoftFloat operator-(SoftFloat a, SoftFloat b) {
    const softfloat::Aligned v = softfloat::Align(a, b, a.e + softfloat::kAligned);
    return softfloat::Rounded(v.a - v.b, v.e);
}
[[gnu::always_inline]] inline SoftFloat operator-(SoftFloat a) {
    return {-a.m, a.e};
}
// Returns a + b and a - b, which are aligned once for both. "Sum and difference".
[[gnu::always_inline]] inline SumDifference<SoftFloat> SumAndDifference(SoftFloat a, SoftFloat b) {
    const softfloat::Aligned v = softfloat::Align(a, b, a.e + softfloat::kAligned);
    return {softfloat::Rounded(v.a + v.b, v.e), softfloat::Rounded(v.a - v.b, v.e)};
}

// Sum and difference in a stage of a transform. There the second number's exponent is lowered by
// kAligned against the first one's; the results' exponents are lowered as well. "Exponents that
// carry the alignment".
[[gnu::always_inline]] inline SumDifference<SoftFloat> StagePair(SoftFloat first,
                                                                 SoftFloat second) {
    const softfloat::Aligned v = softfloat::Align(first, second, first.e);
    return {softfloat::Rounded(v.a + v.b, v.e), softfloat::Rounded(v.a - v.b, v.e)};
}
[[gnu::always_inline]] inline SumDifference<SoftFloat> BackwardStagePair(SoftFloat first,
                                                                         SoftFloat second) {
    const auto [sum, difference] = StagePair(first, second);
    return {sum, -difference};
}

// Returns the number with its exponent increased by `by`; the significand is unchanged.
[[gnu::always_inline]] inline SoftFloat Raised(SoftFloat a, int32_t by) {
    return {a.m, a.e + by};
}
// A second operand whose exponent is lowered by kAligned. Only the operators below take it.
struct LoweredFloat {
    int32_t m, e;
};
[[gnu::always_inline]] inline LoweredFloat AsLowered(SoftFloat a) {
    return {a.m, a.e};
}
[[gnu::always_inline]] inline SoftFloat operator+(SoftFloat a, LoweredFloat b) {
    const softfloat::Aligned v = softfloat::Align(a, {b.m, b.e}, a.e);
    return softfloat::Rounded(v.a + v.b, v.e);
}
[[gnu::always_inline]] inline SoftFloat operator-(SoftFloat a, LoweredFloat b) {
    return a + LoweredFloat{-b.m, b.e};
}

// The product's upper half, doubled, has 29 or 30 bits. Of its lower half it only matters whether
// it is 0. "Products".
[[gnu::always_inline]] inline SoftFloat operator*(SoftFactor factor, SoftFloat a) {
    int32_t e = a.e + factor.e;
#if defined(ORVANE_SOFTFLOAT_ARM)
    int32_t low, m;
    asm("smull  %[low], %[m], %[a], %[factor]\n\t"
        "cmp    %[low], #1\n\t"  // the carry says that it is not 0
        "adc    %[m], %[m], %[m]\n\t"
        "teq    %[m], %[m], lsl #2\n\t"  // 29 bits: bits 31 and 29 are the same
        "movpl  %[m], %[m], lsl #1\n\t"
        "subpl  %[e], %[e], #1\n\t"
        "movs   %[low], %[m], lsr #7\n\t"
        "adc    %[m], %[m], #31\n\t"
        "bic    %[m], %[m], #63"
        : [low] "=&r"(low), [m] "=&r"(m), [e] "+r"(e)
        : [a] "r"(a.m), [factor] "r"(factor.m)
        : "cc");
    return {m, e};
#else
    const uint64_t product = static_cast<uint64_t>(static_cast<int64_t>(a.m) * factor.m);
    uint32_t m = 2 * static_cast<uint32_t>(product >> 32U) +
                 static_cast<uint32_t>(static_cast<uint32_t>(product) != 0);
    if (static_cast<int32_t>(m ^ (m << 2U)) >= 0) {
        m <<= 1U;
        --e;
    }
    return {static_cast<int32_t>((m + 31 + ((m >> 6U) & 1U)) & ~63U), e};
#endif
}

// A factor in one word, because tables of factors are read often. e, from -64 to 63, is at bits 31
// to 25, and the upper 25 bits of m are below. "Turns".
struct PackedFactor {
    uint32_t bits;
};
inline PackedFactor Packed(SoftFactor a) {
    const int32_t e = std::max(a.e, -64);  // only a zero's exponent can be less
    return {static_cast<uint32_t>(e) << 25U | static_cast<uint32_t>(a.m) >> 7U};
}
[[gnu::always_inline]] inline SoftFactor Unpacked(PackedFactor a) {
    return {static_cast<int32_t>(a.bits << 7U), static_cast<int32_t>(a.bits) >> 25U};
}

// A complex factor. The exponent of its real part is raised by kAligned, so that the sums of its
// products need no addition to align. The exponent of its imaginary part is raised by kTurnLower,
// because the assembly version leaves the products one bit lower than numbers. "Turns".
inline constexpr int32_t kTurnLower = 1;
struct alignas(8) SoftTurn {
    PackedFactor re, im;
};
struct SoftTwiddles {  // the factors of one group of butterflies
    SoftTurn w1, w2, w3;
};
[[gnu::always_inline]] inline Complex<SoftFloat> Twiddle(SoftTurn w, Complex<SoftFloat> y) {
    const SoftFactor first = Unpacked(w.re);
    SoftFactor second = Unpacked(w.im);
    second.e -= kTurnLower;
    const SoftFloat ofReal = first * y.re, ofImaginary = first * y.im;
    const softfloat::Aligned re = softfloat::Align(ofReal, second * y.im, ofReal.e);
    const softfloat::Aligned im = softfloat::Align(ofImaginary, second * y.re, ofImaginary.e);
    return {softfloat::Rounded(re.a - re.b, re.e), softfloat::Rounded(im.a + im.b, im.e)};
}
inline SoftTurn Conjugate(SoftTurn w) {
    return {w.re, Packed(-Unpacked(w.im))};
}

namespace softfloat {

// Returns true if the float with these bits is 0 or has a magnitude from 2^lowest to below 2^60.
template <int lowest = -80>
[[gnu::always_inline]] inline bool Enters(uint32_t bits) {
    constexpr uint32_t kFirst = static_cast<uint32_t>(127 + lowest) << 24U, kBeyond = 187U << 24U;
    const uint32_t magnitude = bits << 1U;
    return magnitude - kFirst < kBeyond - kFirst || magnitude == 0;
}
// Returns the number that equals the float with these bits, for which Enters must hold.
[[gnu::always_inline]] constexpr SoftFloat Unpack(uint32_t bits) {
    const uint32_t magnitude = bits << 1U;
    if (magnitude == 0) return {0, 0};
    const int32_t m = static_cast<int32_t>(((magnitude << 5U) & 0x3fffffffU) | 0x20000000U);
    const int32_t e = static_cast<int32_t>(magnitude >> 24U) - kBias;
    return {static_cast<int32_t>(bits) < 0 ? -m : m, e};
}
// Returns the bits of the float that equals `a`. A zero is positive.
[[gnu::always_inline]] inline uint32_t Pack(SoftFloat a) {
    const uint32_t sign = static_cast<uint32_t>(a.m) & 0x80000000U;
    const uint32_t significand = static_cast<uint32_t>(sign != 0 ? -a.m : a.m) >> 6U;
    if (significand == 0) return 0;
    const int32_t exponent = a.e + kBias - 1;
    if (exponent >= 0) [[likely]]  // 2^24 carries into the exponent
        return sign | ((static_cast<uint32_t>(exponent) << 23U) + significand);
    return sign | (significand >> static_cast<uint32_t>(-exponent));  // subnormal, and exact
}

// Returns true if a finite float can be a factor: it is 0 or its magnitude is from `smallest` to
// below 2^30. The default suits numbers from 2^-80 on.
inline bool CanBeFactor(float v, float smallest = 0x1p-46F) {
    const uint32_t magnitude = std::bit_cast<uint32_t>(v) & INT32_MAX;
    const auto first = std::bit_cast<uint32_t>(smallest), beyond = std::bit_cast<uint32_t>(0x1p30F);
    return magnitude - first < beyond - first || magnitude == 0;
}
constexpr SoftFactor FactorOf(float v) {
    const SoftFloat a = Unpack(std::bit_cast<uint32_t>(v));
    return {2 * a.m, a.e + kBias - 126};
}

// Returns true if both numbers may be multiplied: no product can be subnormal. Sets the exponent of
// a zero to 0 if it is negative, because cancellation can leave any exponent in a zero.
[[gnu::always_inline]] inline bool Settles(SoftFloat& a, SoftFloat& b) {
    if ((a.e | b.e) >= 0) [[likely]]
        return true;
    if (a.m == 0) a.e = 0;
    if (b.m == 0) b.e = 0;
    return (a.e | b.e) >= 0;
}

}  // namespace softfloat
