// What the library asks the device for, in a test's hands: the safe-mode marker and the wall clock.
// An executable that links fake_device.cpp and exports its symbols answers for the platform. As the
// platform's loader does, it exports functions with the names of the library's own.
#pragma once
#include <atomic>
#include <cstdint>

struct FakeDevice {
    std::atomic<bool> markerExists{false};
    std::atomic<int> markerLookups{0};
    std::atomic<int64_t> clockUs{-1};  // below 0: the real time
};
inline FakeDevice device;
