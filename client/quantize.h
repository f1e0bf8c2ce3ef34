// Converts floats to the 16 bits that the chain processes.
#pragma once
#include <algorithm>
#include <cmath>
#include <cstdint>

// Returns round(32768 x + noise), clamped to 16 bits. x must be finite; its full scale is 1.0.
// Without noise, a value that came from 16 bits returns to the same 16 bits.
inline int16_t Quantized(float x, double noise = 0) {
    return static_cast<int16_t>(
        std::clamp(std::floor(32768.0 * x + noise + 0.5), -32768.0, 32767.0));
}
