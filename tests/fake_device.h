// Lets a test decide what the library learns from the device: the safe-mode marker and the wall
// clock. An executable that links fake_device.cpp and exports its symbols replaces the platform's
// functions. Like the platform's loader, it also exports functions with the same names as the
// library's own.
#pragma once
#include <atomic>
#include <cstdint>

struct FakeDevice {
    std::atomic<bool> markerExists{false};
    std::atomic<int> markerLookups{0};
    std::atomic<int64_t> clockUs{-1};  // microseconds; below 0 the real time is used
};
inline FakeDevice device;
