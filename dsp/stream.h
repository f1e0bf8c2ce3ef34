// The sampling rates and channel counts that the processors support, and the length of the chunks
// in which they work.
#pragma once
#include <cstdint>

constexpr uint32_t kLowestRateHz = 32000, kHighestRateHz = 48000;
constexpr uint32_t kMaxChannels = 2;  // interleaved

// The most frames that one pass of a processor works on. Arrays of one chunk rely on it.
constexpr uint32_t kChunkFrames = 128;
