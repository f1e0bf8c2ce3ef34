// What a stream may be: the sampling rates and channel counts that the processors are made for; and
// how it is cut for them.
#pragma once
#include <cstdint>

constexpr uint32_t kLowestRateHz = 32000, kHighestRateHz = 48000;
constexpr uint32_t kMaxChannels = 2;  // interleaved

// The most frames that one pass of a processor works on. Arrays of one chunk rely on it.
constexpr uint32_t kChunkFrames = 128;
