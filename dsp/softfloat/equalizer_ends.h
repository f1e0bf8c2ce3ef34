// Where samples enter and leave the equalizer on unpacked numbers: floats or 16 bits become
// integers of 2^-30, the bottom band and what came before become floats.
//
// The texts are the definition. Where there is a routine by hand, the functions call it.
#pragma once
#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>

#include "dsp/softfloat/average.h"
#include "dsp/softfloat/number.h"
#include "dsp/softfloat/samples.h"

// The float with these bits in units of 2^-30. False if it isn't a multiple, or is 1.5 or more.
inline bool ToUnits(uint32_t bits, int32_t& units) {
    constexpr int32_t kWhole = 127 + 23 - 30;  // exponent of a significand in units
    const uint32_t magnitude = bits & INT32_MAX;
    if (magnitude >= std::bit_cast<uint32_t>(1.5F)) return false;
    const auto significand = static_cast<int32_t>((magnitude & 0x7fffffU) | 0x800000U);
    const int32_t up = static_cast<int32_t>(magnitude >> 23U) - kWhole, down = std::min(-up, 31);
    const int32_t whole = up >= 0 ? significand << up : significand >> down;
    if (up < 0 && whole << down != significand) {
        units = 0;
        return magnitude == 0;
    }
    units = static_cast<int32_t>(bits) < 0 ? -whole : whole;
    return true;
}

// Samples of one channel out of `channels` interleaved ones, as conversion to floats makes them, to
// units; returns all of them or-ed together. At least one frame.
inline int32_t TakeShortsText(const int16_t* samples, int32_t* units, size_t frames,
                              size_t channels) {
    int32_t any = 0;
    for (size_t n = 0; n < frames; ++n) {
        ToUnits(std::bit_cast<uint32_t>(SoftFromInt16(samples[n * channels])), units[n]);
        any |= units[n];
    }
    return any;
}

// The widest sum's band joins the output, which becomes a float of one of `channels` interleaved
// ones. None is below the normal floats. At least one frame.
inline void FinishRowsText(const AverageRow* rows, const SoftFactor* gain, float* samples,
                           size_t frames, size_t channels) {
    for (size_t n = 0; n < frames; ++n) {
        const SoftFloat v = *gain * NumberOf(rows[n].sum, 0) + rows[n].output;
        samples[n * channels] = std::bit_cast<float>(softfloat::Pack({v.m, v.e - kOutputRaised}));
    }
}

#if defined(ORVANE_SOFTFLOAT_ASSEMBLY)
extern "C" int32_t SoftTakeShorts(const int16_t* samples, int32_t* units, size_t frames,
                                  size_t channels);
extern "C" void SoftFinishRows(const AverageRow* rows, const SoftFactor* gain, float* samples,
                               size_t frames, size_t channels);
#endif

inline int32_t TakeShorts(const int16_t* samples, int32_t* units, size_t frames, size_t channels) {
#if defined(ORVANE_SOFTFLOAT_ASSEMBLY)
    return SoftTakeShorts(samples, units, frames, channels);
#else
    return TakeShortsText(samples, units, frames, channels);
#endif
}
inline void FinishRows(const AverageRow* rows, const SoftFactor* gain, float* samples,
                       size_t frames, size_t channels) {
#if defined(ORVANE_SOFTFLOAT_ASSEMBLY)
    SoftFinishRows(rows, gain, samples, frames, channels);
#else
    FinishRowsText(rows, gain, samples, frames, channels);
#endif
}
