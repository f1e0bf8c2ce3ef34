// Conversions of samples from and to 16 bits, and products of samples with gains, without a
// floating-point unit. All give the bits of the same operations on floats.
#pragma once
#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>

#include "dsp/fixed_point.h"
#include "dsp/softfloat/number.h"

// Returns sample * (2^-15 + 2^-30), rounded to float. The constant is the float nearest to 1 /
// 32767.
[[gnu::always_inline]] inline float SoftFromInt16(int16_t sample) {
    const int32_t whole = sample;
    const uint32_t magnitude = static_cast<uint32_t>(whole < 0 ? -whole : whole);
    if (magnitude == 0) return 0;
    const uint32_t product = (magnitude << 15U) + magnitude;  // in units of 2^-30
    const auto zeros = static_cast<uint32_t>(std::countl_zero(product));
    const uint32_t normal = (product << zeros) >> 1U;  // 24 bits down from bit 30 are kept
    const uint32_t rounded = (normal + 63 + ((normal >> 7U) & 1U)) >> 7U;
    const uint32_t sign = static_cast<uint32_t>(whole) & 0x80000000U;
    return std::bit_cast<float>(sign | (((127 - zeros) << 23U) + rounded));
}

// Returns sample * factor, truncated toward zero. |sample| < 2 and factor <= 2^15.
inline int32_t SoftTruncated(float sample, float factor) {
    constexpr uint32_t kSmallest = 111U << 23U;  // 2^-16: smaller samples give 0
    const uint32_t bits = std::bit_cast<uint32_t>(sample);
    if ((bits & INT32_MAX) < kSmallest) return 0;
    const SoftFloat product = softfloat::FactorOf(factor) * softfloat::Unpack(bits);
    const int32_t magnitude = (product.m < 0 ? -product.m : product.m) >> (109 - product.e);
    return product.m < 0 ? -magnitude : magnitude;
}

// A normal gain, and the range of samples whose products with it are normal floats.
// docs/soft-float.md, "Samples times a gain".
struct SampleGain {
    // Returns true if the gain is normal: not 0, subnormal, infinite or NaN.
    static bool Takes(float gain) {
        const uint32_t exponent = std::bit_cast<uint32_t>(gain) << 1U >> 24U;
        return exponent - 1 < 254;
    }
    explicit SampleGain(float gain) {
        const uint32_t bits = std::bit_cast<uint32_t>(gain), field = bits << 1U >> 24U;
        const uint32_t least = std::max(field, 127U) - field + 1;
        const uint32_t largest = 379 - std::max(field, 125U);
        factor = ((bits & 0x7fffffU) | 0x800000U) << 1U;
        first = least << 24U;
        length = (largest + 1 - least) << 24U;
        exponent = (bits >> 23U) - 128;
    }

    uint32_t factor;         // the gain's significand at bits 24 to 1
    uint32_t first, length;  // range of a sample's bits, shifted left by 1
    uint32_t exponent;       // added to the sample's sign and exponent field
};

// Multiplies samples by the gain in place. Stops at the first sample, other than a zero, that is
// out of the gain's range. Returns the number of samples before it. The definition of
// AmplifySimple.
inline size_t AmplifySimplePortable(float* samples, size_t count, const SampleGain* gain) {
    for (size_t n = 0; n < count; ++n) {
        const uint32_t bits = std::bit_cast<uint32_t>(samples[n]);
        uint32_t result = bits ^ (gain->exponent + 128) >> 8U << 31U;
        if ((bits << 1U) - gain->first < gain->length) {
            const uint64_t product = uint64_t{bits << 8U | 0x80000000U} * gain->factor;
            const auto carry = static_cast<uint32_t>(product >> 56U);  // 25 bits instead of 24
            const uint64_t placed = product >> carry;
            const auto upper = static_cast<uint32_t>(placed >> 32U);
            const auto low = static_cast<uint32_t>(placed);
            const uint32_t rounded = upper + (low + 0x7fffffffU + (upper & 1U) < low);
            result = (((bits >> 23U) + gain->exponent + carry) << 23U) + rounded;
        } else if (bits << 1U != 0) {
            return n;
        }
        samples[n] = std::bit_cast<float>(result);
    }
    return count;
}
// The assembly version where there is one. count >= 1.
#if defined(ORVANE_SOFTFLOAT_ASSEMBLY)
extern "C" size_t SoftAmplify(float* samples, size_t count, const SampleGain* gain);
inline constexpr auto& AmplifySimple = SoftAmplify;
#else
inline constexpr auto& AmplifySimple = AmplifySimplePortable;
#endif

// Multiplies `count` samples by any gain in place.
inline void SoftAmplified(float* samples, size_t count, float gain) {
    const bool simple = SampleGain::Takes(gain);
    const SampleGain taken(gain);
    for (size_t n = 0; n < count;) {
        if (simple) n += AmplifySimple(samples + n, count - n, &taken);
        if (n < count) samples[n++] *= gain;
    }
}

// The conversions that dsp/samples.h uses in builds with unpacked floats.
struct UnpackedSamples {
    static float FromInt16(int16_t sample) { return SoftFromInt16(sample); }
    static int32_t ToInt16(float sample) {
        constexpr uint32_t kBeyond = 128U << 23U;  // 2 and more, and not a number
        if ((std::bit_cast<uint32_t>(sample) & INT32_MAX) < kBeyond)
            return SoftTruncated(sample, 32767);
        return TruncateToInt32(sample * 32767.0F);
    }
    static void Amplify(float* samples, size_t count, float gain) {
        SoftAmplified(samples, count, gain);
    }
};

#if defined(ORVANE_SOFTFLOAT_ASSEMBLY)
extern "C" size_t SoftShortProducts(const float* x, const float* gains, int16_t* out, size_t count,
                                    int32_t limit);
#endif

// The last step of an output as one product of integers. Rounds x * gain to float and converts it
// to 16 bits as SoftTruncated does with 32767. docs/soft-float.md, "One product for an output".
class ShortProducts {
public:
    // The gate (full scale is 1.0) must not be negative.
    explicit ShortProducts(float outputGate)
        : gate(std::min(std::bit_cast<uint32_t>(outputGate), kOne - 1)),
          limit(std::max(static_cast<int32_t>(std::bit_cast<float>(gate) * kScale) - kMargin, 0)) {}

    // Stores the output. Returns false, and stores nothing, if its magnitude exceeds the gate or
    // isn't below 1. 0 <= gain <= 1.
    [[gnu::always_inline]] bool Make(float x, float gain, int16_t* out) const {
        const uint32_t a = std::bit_cast<uint32_t>(x), b = std::bit_cast<uint32_t>(gain);
        const uint32_t down = Down(x, gain);
        if (down - 8 < 24) [[likely]] {
            const uint64_t product = uint64_t{a << 8U | 0x80000000U} * (b << 8U | 0x80000000U);
            const uint32_t part =
                static_cast<uint32_t>(product >> 32U) >> down;  // of x * gain, in 2^-23
            const uint32_t units = part - (part >> 15U);        // in 2^-8
            const bool decided = ((units + 2) & 0xfcU) != 0;
            if (decided && static_cast<int32_t>(units) < limit) [[likely]] {
                const auto magnitude = static_cast<int32_t>(units >> 8U);
                *out = static_cast<int16_t>(static_cast<int32_t>(a) < 0 ? -magnitude : magnitude);
                return true;
            }
        }
        return MakeExactly(x, gain, out);
    }

    // Makes outputs until Make would return false. Returns the number of outputs made.
    size_t MakeRun(const float* x, const float* gains, int16_t* out, size_t count) const {
        for (size_t n = 0; n < count; ++n) {
#if defined(ORVANE_SOFTFLOAT_ASSEMBLY)
            n += SoftShortProducts(x + n, gains + n, out + n, count - n, limit);
            if (n == count) break;
            if (!MakeExactly(x[n], gains[n], out + n)) return n;
#else
            if (!Make(x[n], gains[n], out + n)) return n;
#endif
        }
        return count;
    }

private:
    static constexpr uint32_t kOne = 127U << 23U;
    static constexpr float kScale = 32767.0F * 256;
    static constexpr int32_t kMargin = 4;
    // The upper half of the significands' product, shifted right by kUnits minus both exponent
    // fields, is in units of 2^-23.
    static constexpr uint32_t kUnits = 261;

    static uint32_t Down(float x, float gain) {
        const uint32_t a = std::bit_cast<uint32_t>(x), b = std::bit_cast<uint32_t>(gain);
        return kUnits - (a << 1U >> 24U) - (b >> 23U);
    }
    bool MakeExactly(float x, float gain, int16_t* out) const {
        if (Down(x, gain) - 32 < kUnits && limit > 0) {  // the product is below 2^-22
            *out = 0;
            return true;
        }
        const float output = x * gain;
        if ((std::bit_cast<uint32_t>(output) & INT32_MAX) > gate) return false;
        *out = static_cast<int16_t>(SoftTruncated(output, 32767));
        return true;
    }

    uint32_t gate;
    int32_t limit;
};
