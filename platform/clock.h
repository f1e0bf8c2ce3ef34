// Wall-clock time in the form that the activity query returns.
#pragma once
#include <cstdint>

// Returns seconds * 1000 + microseconds / 1000, modulo 2^32.
int32_t WrappedMilliseconds(int64_t seconds, int64_t microseconds);

// Returns the present wall-clock time in milliseconds, modulo 2^32. Any thread.
int32_t WallClockMilliseconds();
