// Converts floats to the 16 bits that the chain processes.
#pragma once
#include <algorithm>
#include <cmath>
#include <cstdint>

// Returns floor(32768 x + noise + 0.5), clamped to -32768 to 32767. `x` must be finite; its full
// scale is 1.0. `noise` is dither in steps of 16 bits. Without noise, a value that came from 16
// bits returns to the same 16 bits. Thread: any.
inline int16_t Quantized(float x, double noise = 0) {
    return static_cast<int16_t>(
        std::clamp(std::floor(32768.0 * x + noise + 0.5), -32768.0, 32767.0));
}
