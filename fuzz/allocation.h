// Controls which allocations of the library fail in a fuzz target.
#pragma once
#include <cstdint>

// Makes the library's allocation number `count` from now on fail, once. 1 is the next allocation, 0
// is none.
void RefuseAllocation(uint32_t count);
// Returns how many allocations have failed since the process began.
uint64_t RefusedAllocations();
