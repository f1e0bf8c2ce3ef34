#include "fuzz/allocation.h"

#include <cstddef>
#include <new>

namespace {
// More than any object needs; a request beyond it stands for a machine that is out of memory.
constexpr size_t kLargest = 16U << 20U;

uint32_t countdown = 0;
uint64_t refused = 0;
}  // namespace

void RefuseAllocation(uint32_t count) {
    countdown = count;
}

uint64_t RefusedAllocations() {
    return refused;
}

// The library allocates through these two alone; the throwing forms, which the targets and the
// fuzzer use, stay the sanitizer's.
void* operator new(size_t size, const std::nothrow_t&) noexcept {
    if (size > kLargest || (countdown != 0 && --countdown == 0)) {
        ++refused;
        return nullptr;
    }
    return ::operator new(size);
}
void* operator new[](size_t size, const std::nothrow_t&) noexcept {
    if (size > kLargest || (countdown != 0 && --countdown == 0)) {
        ++refused;
        return nullptr;
    }
    return ::operator new[](size);
}
