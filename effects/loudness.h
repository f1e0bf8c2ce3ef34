// Energy of weighted 16-bit samples: the squares of the outputs of a Biquad_FP, added up. A sample
// s enters as s * 512, so that full scale is 1.0 in Q24, its square 2^48.
#pragma once
#include <cstddef>
#include <cstdint>

#include "dsp/biquad_fp.h"

// One channel: `count` samples that lie `stride` apart. The filter's history goes on.
uint64_t AddEnergy(const int16_t* samples, size_t count, ptrdiff_t stride, Biquad_FP& filter);

// Two interleaved channels, a filter for each: the larger of their AddEnergy, to the bit. Filters
// whose coefficients are equal, rest and lie within 64 take less time: chunk by chunk what doesn't
// wait for earlier outputs (lanes: neighbouring samples), then both recurrences side by side.
uint64_t LargerEnergy(const int16_t* frames, size_t count, Biquad_FP* filters);
