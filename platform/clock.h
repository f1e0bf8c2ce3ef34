// Wall-clock time as the activity query needs it.
#pragma once
#include <cstdint>

// seconds * 1000 + microseconds / 1000, modulo 2^32.
int32_t WrappedMilliseconds(int64_t seconds, int64_t microseconds);

// The present wall-clock time in that form. Any thread.
int32_t WallClockMilliseconds();
