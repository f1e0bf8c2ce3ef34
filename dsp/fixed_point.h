// Arithmetic in Q24 fixed point (24 fractional bits, 1.0 is 2^24). Also conversions from float to
// integer whose result is defined for every value.
#pragma once
#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "dsp/code_generation.h"

constexpr int kQ24Bits = 24;
constexpr int32_t kQ24One = 1 << kQ24Bits;
constexpr int kSampleShift = 9;  // left shift that takes 16-bit samples (full scale 2^15) to Q24

// True if one instruction multiplies or divides 64-bit integers.
#if defined(__wasm__)
inline constexpr bool kWideProducts = true;
#else
inline constexpr bool kWideProducts = sizeof(void*) == sizeof(int64_t);
#endif

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

// Replaces gains[i], which must not be negative, by MulQ24(samples[i] * 2^kShift, gains[i]).
//
// SSE2 multiplies unsigned 32-bit lanes only. Read as unsigned, a negative sample is 2^32 too
// large, so its product is 2^32 * gain too large and the result, after the shift by 24, 2^8 * gain.
// The loop subtracts this excess. Compilers turn it into vectors of neighbours, because the arrays
// must not overlap.
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
