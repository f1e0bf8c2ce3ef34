// 16-bit samples to floats and back on unpacked numbers: what a conversion and a product of floats
// give, to the bit.
#pragma once
#include <bit>
#include <cstdint>

#include "dsp/softfloat/number.h"

// sample * factor; factor is a normal float that can be a factor (CanBeFactor).
inline float SoftScaled(int16_t sample, float factor) {
    constexpr int kUp = 14;  // to below 2^30; the number 1 is {2^29, 80}
    const SoftFloat whole = softfloat::Rounded(sample * (1 << kUp), 109 - kUp);
    return std::bit_cast<float>(softfloat::Pack(softfloat::FactorOf(factor) * whole));
}

// sample * factor, factor at most 2^15, toward zero. Not for samples of 2 and more.
inline int32_t SoftTruncated(float sample, float factor) {
    constexpr uint32_t kSmallest = 111U << 23U;  // 2^-16: below, nothing is left
    const uint32_t bits = std::bit_cast<uint32_t>(sample);
    if ((bits & INT32_MAX) < kSmallest) return 0;
    const SoftFloat product = softfloat::FactorOf(factor) * softfloat::Unpack(bits);
    const int32_t magnitude = (product.m < 0 ? -product.m : product.m) >> (109 - product.e);
    return product.m < 0 ? -magnitude : magnitude;
}
