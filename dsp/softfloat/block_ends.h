// Where a block's samples become unpacked numbers, and where the convolved ones become floats again
// and meet what the block before left.
//
// The texts are the definition. Where there is a routine by hand, the functions call it.
#pragma once
#include <bit>
#include <cstddef>
#include <cstdint>

#include "dsp/butterfly.h"
#include "dsp/softfloat/number.h"

enum class LoadedBlock : uint32_t { kRefused, kNumbers, kSilence };

// Where a value enters a transform, and by how much its exponent is raised there, kAligned for each
// stage of radix 2 that takes it as the first of a pair: "Exponents that carry the alignment".
struct TransformPlace {
    uint16_t at, raised;
};

// Pairs of samples to places[q] of `out`, q from 0 to pairs - 1. Refused, with `out` in any state,
// if one can't enter.
inline LoadedBlock LoadBlockText(const float* re, const float* im, const TransformPlace* places,
                                 Complex<SoftFloat>* out, size_t pairs) {
    uint32_t any = 0;  // no bit but a sign is set
    for (size_t q = 0; q < pairs; ++q) {
        const auto ofRe = std::bit_cast<uint32_t>(re[q]), ofIm = std::bit_cast<uint32_t>(im[q]);
        if (!softfloat::Enters(ofRe) || !softfloat::Enters(ofIm)) return LoadedBlock::kRefused;
        any |= (ofRe | ofIm) << 1U;
        out[places[q].at] = {Raised(softfloat::Unpack(ofRe), places[q].raised),
                             Raised(softfloat::Unpack(ofIm), places[q].raised)};
    }
    return any != 0 ? LoadedBlock::kNumbers : LoadedBlock::kSilence;
}

// v + tail, of which v is less than 2^200 times larger or smaller.
[[gnu::always_inline]] inline float PlusTail(SoftFloat v, float tail) {
    const auto bits = std::bit_cast<uint32_t>(tail);
    const uint32_t field = bits << 1U >> 24U;
    if (field - 1 < 186) [[likely]]  // normal, below 2^60
        v = v + softfloat::Unpack(bits);
    const float packed = std::bit_cast<float>(softfloat::Pack(v));
    return field - 1 < 186 ? packed : packed + tail;
}

// The last stage of a transform, of radix 2, for one part of complex values, real or imaginary: of
// the parts at a[0], a[2], .. and those `span` values behind them sums to `low`, `count` of them,
// at least one, and differences to `high`. With `overlapping`, tail[q] is added to low[q].
template <bool overlapping>
inline void LastInverseStageText(const SoftFloat* a, size_t span, size_t count, float* low,
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
extern "C" LoadedBlock SoftLoadBlock(const float* re, const float* im, const TransformPlace* places,
                                     Complex<SoftFloat>* out, size_t pairs);
extern "C" void SoftLastInverseStage(const SoftFloat* a, size_t span, size_t count, float* low,
                                     float* high);
extern "C" void SoftLastInverseOverlap(const SoftFloat* a, size_t span, size_t count, float* low,
                                       float* high, const float* tail);
#endif

// At least one pair.
inline LoadedBlock LoadBlock(const float* re, const float* im, const TransformPlace* places,
                             Complex<SoftFloat>* out, size_t pairs) {
#if defined(ORVANE_SOFTFLOAT_ASSEMBLY)
    return SoftLoadBlock(re, im, places, out, pairs);
#else
    return LoadBlockText(re, im, places, out, pairs);
#endif
}

// tail: nullptr if there is none to add.
inline void LastInverseStage(const SoftFloat* a, size_t span, size_t count, float* low, float* high,
                             const float* tail) {
#if defined(ORVANE_SOFTFLOAT_ASSEMBLY)
    if (tail != nullptr)
        SoftLastInverseOverlap(a, span, count, low, high, tail);
    else
        SoftLastInverseStage(a, span, count, low, high);
#else
    (tail != nullptr ? LastInverseStageText<true> : LastInverseStageText<false>)(a, span, count,
                                                                                 low, high, tail);
#endif
}
