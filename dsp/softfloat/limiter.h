// The output limiter's recurrences on significands alone, over frames in which the exponents don't
// change. docs/soft-float.md, "A limiter's gains".
#pragma once
#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>

#include "dsp/softfloat/number.h"
#include "dsp/softfloat/offsets.h"

// The weights of the law that effects/limiter_arithmetic.h explains, in every build.
inline constexpr float kLimiterKeep = 0.8999F, kLimiterTake = 0.0999F;
inline constexpr float kLimiterRecoverKeep = 0.9999F, kLimiterRecoverStep = 0.0001F;

// a > b, of magnitudes; where floats are unpacked by their bits.
[[gnu::always_inline]] inline bool IsGreaterMagnitude(float a, float b) {
    if constexpr (kSoftFloat)
        return std::bit_cast<int32_t>(a) > std::bit_cast<int32_t>(b);
    else
        return a > b;
}

namespace softfloat {

// Returns the 24-bit significand of a normal float.
constexpr uint32_t Significand(float v) {
    return (std::bit_cast<uint32_t>(v) & 0x7fffffU) | 0x800000U;
}
// Returns the significand of the float with these bits, at bits 30 to 7 ("raised").
[[gnu::always_inline]] inline uint32_t RaisedSignificand(uint32_t bits) {
    return ((bits << 8U) | 0x80000000U) >> 1U;
}
// Returns a * b / 2^32, rounded to nearest. The limiter's factors allow one tie, 1.5 times 0.9999;
// its even neighbour is the upper one, so rounding ties up is correct.
[[gnu::always_inline]] inline uint32_t RoundedUpperHalf(uint32_t a, uint32_t b) {
    return static_cast<uint32_t>((uint64_t{a} * b + 0x80000000U) >> 32U);
}
// Returns the smallest raised significand whose product with the factor (0.5 to 1) keeps the
// exponent.
constexpr uint32_t KeepsExponentFrom(float factor) {
    const uint64_t significand = Significand(factor);
    return static_cast<uint32_t>(((uint64_t{1} << 47U) + significand - 1) / significand) << 7U;
}
// Returns the raised significand times the factor, plus `joining`, rounded. The factor is shifted
// so that the product's upper half has 24 bits; `up` shifts that half to the raised place.
// `joining` is in units of 2^-7 of the significand's last bit.
[[gnu::always_inline]] inline uint32_t NextRaised(uint32_t raised, uint32_t factor, uint32_t up,
                                                  uint32_t joining) {
    const uint32_t sum = (RoundedUpperHalf(raised, factor) << up) + joining;
    return (sum + 63 + ((sum >> 7U) & 1U)) & ~127U;
}
// Returns the float with these bits in the units of `joining` for an exponent field that is at
// least 32 and not below the float's. Zeros and subnormal floats become a bit too low to change the
// result.
[[gnu::always_inline]] inline uint32_t JoiningIn(uint32_t exponent, uint32_t bits) {
    return static_cast<uint32_t>(ShiftedWithSticky(static_cast<int32_t>(RaisedSignificand(bits)),
                                                   static_cast<int32_t>(exponent - (bits >> 23U))));
}
inline constexpr uint32_t kRaisedOne = 1U << 30U;  // the smallest raised significand, 1.0

}  // namespace softfloat

// Returns the number of frames, up to `count`, in which the window's peak stays the same. A sample
// above the peak ends the run. `maxima` are the maxima of the samples that are still in the window;
// a maximum below the peak ends the run too. `maxima` is null if the peak can't leave the window.
// Raises *largest to the largest magnitude seen. Magnitudes are compared by their bits.
inline size_t SteadyFramesPortable(const float* x, const float* maxima, size_t stride, size_t count,
                                   float peak, float* largest) {
    const auto highest = std::bit_cast<int32_t>(peak);
    for (size_t n = 0; n < count; ++n) {
        const int32_t magnitude = std::bit_cast<int32_t>(x[n * stride]) & INT32_MAX;
        if (magnitude > highest) return n;
        if (maxima != nullptr && std::bit_cast<int32_t>(maxima[n * stride]) < highest) return n;
        if (magnitude > std::bit_cast<int32_t>(*largest))
            *largest = std::bit_cast<float>(magnitude);
    }
    return count;
}

// Smooths toward a steady target: gains[n * stride] = smoothed = kLimiterKeep * smoothed + taken.
// Returns the number of frames done. It is less than `count` if the exponent of smoothed or of its
// product would change, or if a number is too small for this form. smoothed and taken are not
// negative.
inline size_t RunSmoothingPortable(float* gains, size_t stride, size_t count, float smoothed,
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
    // A value that rounds to the smallest significand may have been below it, where rounding
    // differs.
    const uint32_t first = keeps ? kKeepsExponent : kRaisedOne + 128;
    const uint32_t beyond = keeps ? 2 * kRaisedOne : kKeepsExponent;
    for (size_t n = 0; n < count; ++n) {
        raised = NextRaised(raised, keeps ? kFactor : 2 * kFactor, keeps ? 7 : 6, joining);
        if (raised - first >= beyond - first) return n;
        gains[n * stride] = std::bit_cast<float>(((exponent - 1) << 23U) + (raised >> 7U));
    }
    return count;
}

// Replaces each smoothed target, gains[n * stride], by the smaller of itself and the recovered
// gain. The recovered gain is never below the previous gain. Gains are at most 1. Returns the
// number of frames done, for the reasons of RunSmoothingPortable.
inline size_t RunRecoveryPortable(float* gains, size_t stride, size_t count, float gain) {
    using namespace softfloat;
    constexpr uint32_t kFactor = Significand(kLimiterRecoverKeep) << 1U;
    constexpr uint32_t kStep = std::bit_cast<uint32_t>(kLimiterRecoverStep);
    auto bits = std::bit_cast<uint32_t>(gain);
    for (size_t n = 0; n < count; ++n) {
        auto next = std::bit_cast<uint32_t>(gains[n * stride]);
        if (next > bits) {
            const uint32_t exponent = bits >> 23U, raised = RaisedSignificand(bits);
            if (exponent < kStep >> 23U) return n;
            // The few products with a smaller exponent lie so close to its boundary that they round
            // to the same value.
            const uint32_t recovered = NextRaised(raised, kFactor, 7, JoiningIn(exponent, kStep));
            if (recovered >= 2 * kRaisedOne) return n;
            next = std::min(((exponent - 1) << 23U) + (recovered >> 7U), next);
            gains[n * stride] = std::bit_cast<float>(next);
        }
        bits = next;
    }
    return count;
}

// The assembly versions where there are some. count >= 1.
#if defined(ORVANE_SOFTFLOAT_ASSEMBLY)
extern "C" size_t SoftSteadyFrames(const float* x, const float* maxima, size_t stride, size_t count,
                                   float peak, float* largest);
extern "C" size_t SoftSmoothing(float* gains, size_t stride, size_t count, float smoothed,
                                float taken);
extern "C" size_t SoftRecovery(float* gains, size_t stride, size_t count, float gain);
static_assert(softfloat::Significand(kLimiterKeep) == LIMITER_KEEP &&
              softfloat::KeepsExponentFrom(kLimiterKeep) == LIMITER_KEEPS_FROM &&
              softfloat::Significand(kLimiterRecoverKeep) == LIMITER_RECOVER_KEEP &&
              softfloat::Significand(kLimiterRecoverStep) == LIMITER_RECOVER_STEP &&
              std::bit_cast<uint32_t>(kLimiterRecoverStep) >> 23U == LIMITER_RECOVER_STEP_EXPONENT);
inline constexpr auto& SteadyFrames = SoftSteadyFrames;
inline constexpr auto& RunSmoothing = SoftSmoothing;
inline constexpr auto& RunRecovery = SoftRecovery;
#else
inline constexpr auto& SteadyFrames = SteadyFramesPortable;
inline constexpr auto& RunSmoothing = RunSmoothingPortable;
inline constexpr auto& RunRecovery = RunRecoveryPortable;
#endif
