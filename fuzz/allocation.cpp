#include "fuzz/allocation.h"

#include <cstddef>
#include <new>

namespace {
// More bytes than any object needs. A larger request fails, as on a machine without that memory.
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

// The library allocates only through these two operators. The targets and the fuzzer use the
// throwing operators, which remain those of the sanitizer.
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
