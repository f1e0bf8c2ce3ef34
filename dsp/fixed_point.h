// Arithmetic in Q24 fixed point (24 fractional bits, 1.0 is 2^24). Also conversions from float to
// integer whose result is defined for every value.
#pragma once
#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>

#include "dsp/code_generation.h"

constexpr int kQ24Bits = 24;
constexpr int32_t kQ24One = 1 << kQ24Bits;
constexpr int kSampleShift = 9;  // left shift that takes 16-bit samples (full scale 2^15) to Q24

static_assert((-1 >> 1) == -1, "a right shift keeps the sign");

// Returns a * b; all three are Q24. Rounds toward minus infinity, modulo 2^32.
constexpr int32_t MulQ24(int32_t a, int32_t b) {
    const int64_t product = static_cast<int64_t>(a) * b;
    return static_cast<int32_t>(static_cast<uint32_t>(product >> kQ24Bits));
}

// Returns a * s / 2^16, rounded toward minus infinity. It is one instruction on ARM.
[[gnu::always_inline]] inline int32_t MulHigh16(int32_t a, int16_t s) {
#if defined(__ARM_FEATURE_DSP) && !defined(__thumb__)
    int32_t product;
    asm("smulwb %0, %1, %2" : "=r"(product) : "r"(a), "r"(int32_t{s}));
    return product;
#else
    return static_cast<int32_t>(int64_t{a} * s >> 16);
#endif
}

// Returns a * 2^24 / b, truncated, where 0 <= a < b, without a 64-bit division. It
// multiplies by the reciprocal of d = b * 2^zeros, which is from 1/2 to 1. The
// Newton-Raphson iteration begins with 48/17 - 32/17 d, which is off by at most 1/17; each step
// squares the error. The reciprocal is then made slightly too small, so that at most 1 must be
// added to the quotient.
ORVANE_ARM_STATE inline int32_t ShortQuotient(int32_t a, int32_t b) {
    constexpr uint32_t kOnce = 3031741620, kTimes = 2021161080;  // 48/17 and 32/17, times 2^30
    constexpr uint32_t kTwo = 1U << 31U, kMargin = 4;
    const auto upper = [](uint32_t x, uint32_t y) {
        return static_cast<uint32_t>(uint64_t{x} * y >> 32U);
    };
    const auto divisor = static_cast<uint32_t>(b), dividend = static_cast<uint32_t>(a);
    const int zeros = std::countl_zero(divisor);
    const uint32_t d = divisor << zeros;
    uint32_t reciprocal = kOnce - upper(kTimes, d);  // times 2^30
    for (int step = 0; step < 3; ++step)
        reciprocal = upper(reciprocal, kTwo - upper(reciprocal, d)) << 2U;
    uint32_t quotient = upper(dividend << zeros, reciprocal - kMargin) >> 6U;
    const uint32_t rest = (dividend << static_cast<uint32_t>(kQ24Bits)) - quotient * divisor;
    quotient += static_cast<uint32_t>(rest >= divisor);
    return static_cast<int32_t>(quotient);
}

// Registers of 64 bits multiply and divide 64-bit integers by one instruction. QuotientQ24 is
// ShortQuotient or the same quotient by that division.
#if defined(__LP64__) || defined(__wasm__)
inline constexpr bool kWideRegisters = true;
inline int32_t QuotientQ24(int32_t a, int32_t b) {
    return static_cast<int32_t>((static_cast<int64_t>(a) << kQ24Bits) / b);
}
#else
inline constexpr bool kWideRegisters = false;
inline int32_t QuotientQ24(int32_t a, int32_t b) {
    return ShortQuotient(a, b);
}
#endif

// Replaces gains[i], which must not be negative, by MulQ24(samples[i] * 2^kShift, gains[i]).
//
// SSE2 multiplies unsigned 32-bit lanes only. Read as unsigned, a negative sample is 2^32 too
// large, so its product is 2^32 * gain too large. After the shift by 24, the result is 2^8 * gain
// too large. The loop subtracts this excess. Compilers turn it into vectors of neighbours, because
// the arrays must not overlap.
template <int kShift, typename Sample>
ORVANE_ARM_STATE void MulQ24Run(int32_t* __restrict gains, const Sample* __restrict samples,
                                size_t count) {
    for (size_t i = 0; i < count; ++i) {
        const int32_t enlarged = samples[i] * (1 << kShift);
        const uint32_t x = static_cast<uint32_t>(enlarged), g = static_cast<uint32_t>(gains[i]);
        const uint32_t excess = static_cast<uint32_t>(enlarged >> 31) & (g << (32 - kQ24Bits));
        const uint64_t product = static_cast<uint64_t>(x) * g;
        gains[i] = static_cast<int32_t>(static_cast<uint32_t>(product >> kQ24Bits) - excess);
    }
}

// Returns a + b modulo 2^32.
constexpr int32_t WrapAdd(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}

// Returns a - b modulo 2^32.
constexpr int32_t WrapSub(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) - static_cast<uint32_t>(b));
}

// Returns a * b modulo 2^64.
constexpr int64_t WrapMul64(int64_t a, int64_t b) {
    return static_cast<int64_t>(static_cast<uint64_t>(a) * static_cast<uint64_t>(b));
}

// Returns |a|. For the most negative value it returns the most positive one.
[[gnu::always_inline]] constexpr int32_t Magnitude(int32_t a) {
    if (a >= 0) return a;
    return a == INT32_MIN ? INT32_MAX : -a;
}

// These truncate toward zero. Values beyond the range give its nearest end; NaN gives 0.
constexpr int32_t TruncateToInt32(float v) {
    if (v >= 2147483648.0F) return INT32_MAX;
    if (v < -2147483648.0F) return INT32_MIN;
    return v == v ? static_cast<int32_t>(v) : 0;
}
constexpr int32_t TruncateToInt32(double v) {
    if (v >= 2147483648.0) return INT32_MAX;
    if (v <= -2147483649.0) return INT32_MIN;
    return v == v ? static_cast<int32_t>(v) : 0;
}
constexpr int64_t TruncateToInt64(double v) {
    if (v >= 9223372036854775808.0) return INT64_MAX;
    if (v < -9223372036854775808.0) return INT64_MIN;
    return v == v ? static_cast<int64_t>(v) : 0;
}

// Converts v to Q24. It adds half a unit and truncates toward zero, so a negative value can rise by
// almost a unit (-1.6 units give -1). Saturates; NaN gives 0. Only settings and designs call it. It
// is not inlined, because with helpers for doubles it would be most of their code.
[[gnu::noinline]] constexpr int32_t ToQ24(double v) {
    return TruncateToInt32(v * 16777216.0 + 0.5);
}
