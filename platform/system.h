// Asks the operating system for what the library needs besides memory and locks. Thread: any.
#pragma once
#include <cstdint>

// Returns true if the file "/data/<name>" exists, in the device's data directory. A path longer
// than 511 characters is cut.
bool DataFileExists(const char* name);

// Both return wall-clock time in the form of the activity query: milliseconds modulo 2^32.
// WrappedMilliseconds is seconds * 1000 + microseconds / 1000; WallClockMilliseconds is the present
// time.
int32_t WrappedMilliseconds(int64_t seconds, int64_t microseconds);
int32_t WallClockMilliseconds();
