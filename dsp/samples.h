// The sampling rates and channel counts that the processors support, the length of the chunks in
// which they work, and conversions of interleaved samples.
#pragma once
#include <cstddef>
#include <cstdint>
#include <cstring>

constexpr uint32_t kLowestRateHz = 32000, kHighestRateHz = 48000;
constexpr uint32_t kMaxChannels = 2;  // interleaved

// The most frames that one pass of a processor works on. Arrays of one chunk rely on it.
constexpr uint32_t kChunkFrames = 128;

// The functions convert between 16 bits and floats with full scale 1.0. Allocates: never. Thread:
// no state.

// Each sample times the float nearest to 1/32767. `to` may begin where `from` does.
void ShortsToFloats(const int16_t* from, float* to, size_t count);

// Each sample times 32767, toward zero, saturated to 32 bits, of which the low 16 are kept: nothing
// is clipped, 1.5 wraps to -16386. Not a number gives 0.
void FloatsToShorts(const float* from, int16_t* to, size_t count);

// Convert samples of any two types: as above from and to 16 bits, otherwise as static_cast does.
template <typename From, typename To>
void ConvertSamples(const From* from, To* to, size_t count) {
    for (size_t i = 0; i < count; ++i) to[i] = static_cast<To>(from[i]);
}
inline void ConvertSamples(const float* from, float* to, size_t count) {
    if (count != 0) std::memcpy(to, from, count * sizeof(float));
}
inline void ConvertSamples(const int16_t* from, float* to, size_t count) {
    ShortsToFloats(from, to, count);
}
inline void ConvertSamples(const float* from, int16_t* to, size_t count) {
    FloatsToShorts(from, to, count);
}

// In place: each sample times the gain.
void Amplify(float* samples, size_t count, float gain);
