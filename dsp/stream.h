// What a stream may be: the sampling rates and channel counts that the processors are made for.
#pragma once
#include <cstdint>

constexpr uint32_t kLowestRateHz = 32000, kHighestRateHz = 48000;
constexpr uint32_t kMaxChannels = 2;  // interleaved
