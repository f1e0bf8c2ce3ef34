// The largest of the newest 256 values, kept in a binary tree of maxima over a ring: eight
// comparisons per value instead of a scan.
//
// Delay, allocation, locks: none.
#pragma once
#include <algorithm>
#include <cstdint>
#include <iterator>

constexpr uint32_t kPeakWindow = 256;  // a power of two

// Level k (8 down to 1) has 2^k entries from index 512 - 2^(k+1) on; leaf j belongs to ring slot j,
// every inner entry is the larger of its two children.
template <typename Sample>
class PeakTree {
public:
    void Clear() { std::fill(std::begin(entries), std::end(entries), Sample(0)); }

    // Puts `value` into ring slot `slot` (below kPeakWindow) and returns the largest of all slots.
    Sample Insert(uint32_t slot, Sample value) { return Climb<kPeakWindow>(entries, slot, value); }

private:
    // From the level of `size` entries up. Written out by the compiler, since the limiters spend
    // most of their time here.
    template <uint32_t size>
    static Sample Climb(Sample* level, uint32_t slot, Sample largest) {
        level[slot] = largest;
        const Sample sibling = level[slot ^ 1U];
        if (!(largest > sibling)) largest = sibling;
        if constexpr (size > 2)
            return Climb<size / 2>(level + size, slot / 2, largest);
        else
            return largest;
    }

    Sample entries[2 * kPeakWindow] = {};
};
