// Floats to the 16 bits that the chain takes.
#pragma once
#include <algorithm>
#include <cmath>
#include <cstdint>

// round(32768 x + noise), held within 16 bits; full scale of x is 1.0. Finite x. Without noise,
// what was 16 bits comes back to the bit.
inline int16_t Quantized(float x, double noise = 0) {
    return static_cast<int16_t>(
        std::clamp(std::floor(32768.0 * x + noise + 0.5), -32768.0, 32767.0));
}
