// Interleaved samples between 16 bits and floats with full scale 1.0, and times a gain.
//
// Allocates: never. Thread: no state.
#pragma once
#include <cstddef>
#include <cstdint>

// Each sample times the float nearest to 1/32767. `to` may begin where `from` does.
void ShortsToFloats(const int16_t* from, float* to, size_t count);

// Each sample times 32767, toward zero, saturated to 32 bits, of which the low 16 are kept: nothing
// is clipped, 1.5 wraps to -16386. Not a number gives 0.
void FloatsToShorts(const float* from, int16_t* to, size_t count);

// In place: each sample times the gain.
void Amplify(float* samples, size_t count, float gain);
