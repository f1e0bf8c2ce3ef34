// The output limiter's recurrences over a run of frames whose exponents stay, on significands
// alone, and its weights. docs/soft-float.md, "A limiter's gains".
#pragma once
#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>

#include "dsp/softfloat/number.h"

// Of a law that effects/limiter_arithmetic.h explains.
inline constexpr float kLimiterKeep = 0.8999F, kLimiterTake = 0.0999F;
inline constexpr float kLimiterRecoverKeep = 0.9999F, kLimiterRecoverStep = 0.0001F;

namespace softfloat {

// 24 bits of a float that isn't subnormal.
constexpr uint32_t Significand(float v) {
    return (std::bit_cast<uint32_t>(v) & 0x7fffffU) | 0x800000U;
}
// The same at bits 30 to 7.
[[gnu::always_inline]] inline uint32_t RaisedSignificand(uint32_t bits) {
    return ((bits << 8U) | 0x80000000U) >> 1U;
}
// a * b / 2^32, rounded to nearest. The limiter's factors make one tie, of 1.5 and 0.9999, and it
// goes up.
[[gnu::always_inline]] inline uint32_t RoundedUpperHalf(uint32_t a, uint32_t b) {
    return static_cast<uint32_t>((uint64_t{a} * b + 0x80000000U) >> 32U);
}
// The least significand whose product with the factor, 0.5 to 1, keeps the exponent, raised.
constexpr uint32_t KeepsExponentFrom(float factor) {
    const uint64_t significand = Significand(factor);
    return static_cast<uint32_t>(((uint64_t{1} << 47U) + significand - 1) / significand) << 7U;
}
// A raised significand times the factor, which is shifted so that the product has 24 bits, `up` its
// unit's place, plus an addend in units of 2^-7 of the significand's last bit.
[[gnu::always_inline]] inline uint32_t NextRaised(uint32_t raised, uint32_t factor, uint32_t up,
                                                  uint32_t joining) {
    const uint32_t sum = (RoundedUpperHalf(raised, factor) << up) + joining;
    return (sum + 63 + ((sum >> 7U) & 1U)) & ~127U;
}
// A float in the units of one of a higher exponent or of the same, from 32 on. Zeros and subnormal
// floats become a bit below any that counts.
[[gnu::always_inline]] inline uint32_t JoiningIn(uint32_t exponent, uint32_t bits) {
    return static_cast<uint32_t>(ShiftedWithSticky(static_cast<int32_t>(RaisedSignificand(bits)),
                                                   static_cast<int32_t>(exponent - (bits >> 23U))));
}
inline constexpr uint32_t kRaisedOne = 1U << 30U;  // the least significand

}  // namespace softfloat

// As many frames as no sample exceeds the peak in and, where the peak is theirs, the tails, which
// fall, keep it; else no tails. `largest` grows with the samples. By the bits of magnitudes.
inline size_t SteadyFramesText(const float* x, const float* tails, size_t stride, size_t count,
                               float peak, float* largest) {
    const auto highest = std::bit_cast<int32_t>(peak);
    for (size_t n = 0; n < count; ++n) {
        const int32_t magnitude = std::bit_cast<int32_t>(x[n * stride]) & INT32_MAX;
        if (magnitude > highest) return n;
        if (tails != nullptr && std::bit_cast<int32_t>(tails[n * stride]) < highest) return n;
        if (magnitude > std::bit_cast<int32_t>(*largest))
            *largest = std::bit_cast<float>(magnitude);
    }
    return count;
}

// A steady target: gains[n * stride] = smoothed = kLimiterKeep * smoothed + taken. Returns the
// frames done before the exponent of smoothed or of its product changes, or numbers are met that
// this isn't for. 0 <= smoothed, taken.
inline size_t RunSmoothingText(float* gains, size_t stride, size_t count, float smoothed,
                               float taken) {
    using namespace softfloat;
    constexpr uint32_t kFactor = Significand(kLimiterKeep) << 1U;
    constexpr uint32_t kKeepsExponent = KeepsExponentFrom(kLimiterKeep);
    const auto bits = std::bit_cast<uint32_t>(smoothed), added = std::bit_cast<uint32_t>(taken);
    const uint32_t exponent = bits >> 23U;
    if (exponent < 32 || exponent < added >> 23U) return 0;
    const uint32_t joining = JoiningIn(exponent, added);
    uint32_t raised = RaisedSignificand(bits);
    const bool keeps = raised >= kKeepsExponent;
    // What rounds to the least significand may have been below it, where it rounds elsewhere.
    const uint32_t first = keeps ? kKeepsExponent : kRaisedOne + 128;
    const uint32_t beyond = keeps ? 2 * kRaisedOne : kKeepsExponent;
    for (size_t n = 0; n < count; ++n) {
        raised = NextRaised(raised, keeps ? kFactor : 2 * kFactor, keeps ? 7 : 6, joining);
        if (raised - first >= beyond - first) return n;
        gains[n * stride] = std::bit_cast<float>(((exponent - 1) << 23U) + (raised >> 7U));
    }
    return count;
}

// gains[n * stride], a smoothed target, becomes the lesser of itself and the recovered gain, which
// is never below the gain before. Gains of 1 and less. Returns the frames done, as
// RunSmoothingText.
inline size_t RunRecoveryText(float* gains, size_t stride, size_t count, float gain) {
    using namespace softfloat;
    constexpr uint32_t kFactor = Significand(kLimiterRecoverKeep) << 1U;
    constexpr uint32_t kStep = std::bit_cast<uint32_t>(kLimiterRecoverStep);
    auto bits = std::bit_cast<uint32_t>(gain);
    for (size_t n = 0; n < count; ++n) {
        auto next = std::bit_cast<uint32_t>(gains[n * stride]);
        if (next > bits) {
            const uint32_t exponent = bits >> 23U, raised = RaisedSignificand(bits);
            if (exponent < kStep >> 23U) return n;
            // The few products whose exponent is less lie so near the whole ones that they round
            // as if it weren't.
            const uint32_t recovered = NextRaised(raised, kFactor, 7, JoiningIn(exponent, kStep));
            if (recovered >= 2 * kRaisedOne) return n;
            next = std::min(((exponent - 1) << 23U) + (recovered >> 7U), next);
            gains[n * stride] = std::bit_cast<float>(next);
        }
        bits = next;
    }
    return count;
}

#if defined(ORVANE_SOFTFLOAT_ASSEMBLY)
extern "C" size_t SoftSteadyFrames(const float* x, const float* tails, size_t stride, size_t count,
                                   float peak, float* largest);
extern "C" size_t SoftSmoothing(float* gains, size_t stride, size_t count, float smoothed,
                                float taken);
extern "C" size_t SoftRecovery(float* gains, size_t stride, size_t count, float gain);
// The routines' constants.
static_assert(softfloat::Significand(kLimiterKeep) == 0xe65fd9 &&
              softfloat::KeepsExponentFrom(kLimiterKeep) == 0x471e7800 &&
              softfloat::Significand(kLimiterRecoverKeep) == 0xfff972 &&
              std::bit_cast<uint32_t>(kLimiterRecoverStep) == 0x38d1b717);
#endif

// At least one frame.
inline size_t SteadyFrames(const float* x, const float* tails, size_t stride, size_t count,
                           float peak, float* largest) {
#if defined(ORVANE_SOFTFLOAT_ASSEMBLY)
    return SoftSteadyFrames(x, tails, stride, count, peak, largest);
#else
    return SteadyFramesText(x, tails, stride, count, peak, largest);
#endif
}
inline size_t RunSmoothing(float* gains, size_t stride, size_t count, float smoothed, float taken) {
#if defined(ORVANE_SOFTFLOAT_ASSEMBLY)
    return SoftSmoothing(gains, stride, count, smoothed, taken);
#else
    return RunSmoothingText(gains, stride, count, smoothed, taken);
#endif
}
inline size_t RunRecovery(float* gains, size_t stride, size_t count, float gain) {
#if defined(ORVANE_SOFTFLOAT_ASSEMBLY)
    return SoftRecovery(gains, stride, count, gain);
#else
    return RunRecoveryText(gains, stride, count, gain);
#endif
}
