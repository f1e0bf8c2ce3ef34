// Memory as the fuzz targets grant it to the library.
#pragma once
#include <cstdint>

// Refuses the library's allocation number `count` from now on, once (1: the next); 0: none.
void RefuseAllocation(uint32_t count);
// Allocations refused since the process began.
uint64_t RefusedAllocations();
