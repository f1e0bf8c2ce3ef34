// The two ends of a block: its samples become unpacked floats, and the convolved samples become
// floats again, with the previous block's overlap added.
//
// The functions named ...Portable are the definition. The names without it mean the assembly
// version where there is one.
#pragma once
#include <bit>
#include <cstddef>
#include <cstdint>

#include "dsp/butterfly.h"
#include "dsp/softfloat/number.h"
#include "dsp/softfloat/offsets.h"

enum class LoadedBlock : uint32_t { kRefused, kNumbers, kSilence };

// The index at which a value enters a transform, and how much its exponent is raised there. It is
// raised by kAligned for each radix-2 stage in which it is the first operand. "Exponents that carry
// the alignment".
struct TransformPlace {
    uint16_t at, raised;
};

// Stores pair q of the samples at out[places[q].at], for q from 0 to pairs - 1. Returns kSilence if
// all are zeros. Returns kRefused, with `out` in any state, if a sample can't enter.
inline LoadedBlock LoadBlockPortable(const float* re, const float* im, const TransformPlace* places,
                                     Complex<SoftFloat>* out, size_t pairs) {
    uint32_t any = 0;  // 0 if all samples are zeros
    for (size_t q = 0; q < pairs; ++q) {
        const auto ofRe = std::bit_cast<uint32_t>(re[q]), ofIm = std::bit_cast<uint32_t>(im[q]);
        if (!softfloat::Enters(ofRe) || !softfloat::Enters(ofIm)) return LoadedBlock::kRefused;
        any |= (ofRe | ofIm) << 1U;
        out[places[q].at] = {Raised(softfloat::Unpack(ofRe), places[q].raised),
                             Raised(softfloat::Unpack(ofIm), places[q].raised)};
    }
    return any != 0 ? LoadedBlock::kNumbers : LoadedBlock::kSilence;
}

// Returns v + tail. The magnitudes must be less than 2^200 times apart.
[[gnu::always_inline]] inline float PlusTail(SoftFloat v, float tail) {
    const auto bits = std::bit_cast<uint32_t>(tail);
    const uint32_t field = bits << 1U >> 24U;
    if (field - 1 < 186) [[likely]]  // normal, below 2^60
        v = v + softfloat::Unpack(bits);
    const float packed = std::bit_cast<float>(softfloat::Pack(v));
    return field - 1 < 186 ? packed : packed + tail;
}

// The last radix-2 stage of a transform for one part (real or imaginary) of the complex values. The
// first operands are a[0], a[2], ...; each second operand is `span` values further on. Stores
// `count` sums (at least one) in `low` and the differences in `high`. With `overlapping`, adds
// tail[q] to low[q].
template <bool overlapping>
inline void LastInverseStagePortable(const SoftFloat* a, size_t span, size_t count, float* low,
                                     float* high, [[maybe_unused]] const float* tail) {
    for (size_t q = 0; q < count; ++q) {
        const auto [sum, difference] = StagePair(a[2 * q], a[2 * (q + span)]);
        high[q] = std::bit_cast<float>(softfloat::Pack(difference));
        if constexpr (overlapping)
            low[q] = PlusTail(sum, tail[q]);
        else
            low[q] = std::bit_cast<float>(softfloat::Pack(sum));
    }
}

#if defined(ORVANE_SOFTFLOAT_ASSEMBLY)
static_assert(sizeof(TransformPlace) == TRANSFORM_PLACE_SIZE &&
              offsetof(TransformPlace, raised) == TRANSFORM_PLACE_RAISED);
extern "C" LoadedBlock SoftLoadBlock(const float* re, const float* im, const TransformPlace* places,
                                     Complex<SoftFloat>* out, size_t pairs);
extern "C" void SoftLastInverseStage(const SoftFloat* a, size_t span, size_t count, float* low,
                                     float* high);
extern "C" void SoftLastInverseOverlap(const SoftFloat* a, size_t span, size_t count, float* low,
                                       float* high, const float* tail);
inline constexpr auto& LoadBlock = SoftLoadBlock;  // pairs >= 1
#else
inline constexpr auto& LoadBlock = LoadBlockPortable;
#endif

// `tail` is null if nothing is to be added.
inline void LastInverseStage(const SoftFloat* a, size_t span, size_t count, float* low, float* high,
                             const float* tail) {
#if defined(ORVANE_SOFTFLOAT_ASSEMBLY)
    if (tail != nullptr)
        SoftLastInverseOverlap(a, span, count, low, high, tail);
    else
        SoftLastInverseStage(a, span, count, low, high);
#else
    (tail != nullptr ? LastInverseStagePortable<true>
                     : LastInverseStagePortable<false>)(a, span, count, low, high, tail);
#endif
}
