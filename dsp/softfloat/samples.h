// 16-bit samples to floats and back on unpacked numbers: what a conversion and a product of floats
// give, to the bit.
#pragma once
#include <bit>
#include <cstdint>

#include "dsp/softfloat/number.h"

// sample * (2^-15 + 2^-30), the float nearest to 1 / 32767.
inline float SoftFromInt16(int16_t sample) {
    const int32_t whole = sample;
    const uint32_t magnitude = static_cast<uint32_t>(whole < 0 ? -whole : whole);
    if (magnitude == 0) return 0;
    const uint32_t product = (magnitude << 15U) + magnitude;  // of 2^-30
    const auto zeros = static_cast<uint32_t>(std::countl_zero(product));
    const uint32_t normal = (product << zeros) >> 1U;  // 24 bits from bit 30 on, the rest rounded
    const uint32_t rounded = (normal + 63 + ((normal >> 7U) & 1U)) >> 7U;
    const uint32_t sign = static_cast<uint32_t>(whole) & 0x80000000U;
    return std::bit_cast<float>(sign | (((127 - zeros) << 23U) + rounded));
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
