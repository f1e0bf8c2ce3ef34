// The energy of weighted 16-bit samples: the sum of the squared outputs of a Biquad_FP. A sample s
// enters as s * 512, so that full scale is 1.0 in Q24 and its square is 2^48.
#pragma once
#include <cstddef>
#include <cstdint>

#include "dsp/biquad_fp.h"

// Returns the energy of one channel: `count` samples that are `stride` apart. The filter keeps its
// history from call to call.
uint64_t AddEnergy(const int16_t* samples, size_t count, ptrdiff_t stride, Biquad_FP& filter);

// Returns the larger AddEnergy of two interleaved channels, with the same bits. `filters` has one
// filter for each. It is faster if both filters have the same coefficients, with magnitudes below
// 64, and no ramp. Then it first computes what doesn't depend on earlier outputs, with vectors of
// neighbouring samples, and interleaves both recurrences.
uint64_t LargerEnergy(const int16_t* frames, size_t count, Biquad_FP* filters);
