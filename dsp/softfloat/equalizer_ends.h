// How samples enter and leave the equalizer in unpacked floats: floats or 16-bit samples become
// integers in units of 2^-30, and the outputs become floats.
//
// The functions named ...Portable are the definition. The names without it mean the assembly
// version where there is one.
#pragma once
#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>

#include "dsp/softfloat/average.h"
#include "dsp/softfloat/number.h"
#include "dsp/softfloat/samples.h"

// Converts the float with these bits to units of 2^-30. Returns false if it isn't a multiple of the
// unit or its magnitude is 1.5 or more.
inline bool ToUnits(uint32_t bits, int32_t& units) {
    constexpr int32_t kWhole =
        127 + 23 - 30;  // exponent field of a float whose significand counts units
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

// Converts the 16-bit samples of one of `channels` interleaved channels to units, with the values
// that conversion to floats gives. Returns all results or-ed together. frames >= 1.
inline int32_t TakeShortsPortable(const int16_t* samples, int32_t* units, size_t frames,
                                  size_t channels) {
    int32_t any = 0;
    for (size_t n = 0; n < frames; ++n) {
        ToUnits(std::bit_cast<uint32_t>(SoftFromInt16(samples[n * channels])), units[n]);
        any |= units[n];
    }
    return any;
}

// Adds the widest sum's band to the output and writes it as a float of one of `channels`
// interleaved channels. No output is below the normal floats. frames >= 1.
inline void FinishRowsPortable(const AverageRow* rows, const SoftFactor* gain, float* samples,
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
inline constexpr auto& TakeShorts = SoftTakeShorts;
inline constexpr auto& FinishRows = SoftFinishRows;
#else
inline constexpr auto& TakeShorts = TakeShortsPortable;
inline constexpr auto& FinishRows = FinishRowsPortable;
#endif
