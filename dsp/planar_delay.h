// Delays one channel by any number of frames, block by block. Blocks are planar pairs of samples
// (planar.h).
//
// Allocates: SetUp. Thread: no lock of its own; the owner serialises all calls.
#pragma once
#include <algorithm>
#include <cstring>

#include "dsp/owned_array.h"
#include "dsp/planar.h"

template <typename T>
class PlanarDelay {
public:
    // Prepares for blocks of `blockPairs` pairs; Next() has room for `room` pairs. The delay holds
    // silence at first. Returns false, and changes nothing, if memory is refused.
    bool SetUp(size_t delayFrames, size_t blockPairs, size_t room) {
        const size_t held = delayFrames / 2 + delayFrames % 2;
        if (!pairs.Allocate(2 * UpToVector(held) + 2 * UpToVector(room))) return false;
        heldPairs = held;
        block = blockPairs;
        odd = delayFrames % 2 != 0;
        return true;
    }

    // Fills the delay with silence, as after SetUp.
    void Clear() { std::fill_n(pairs.data(), pairs.size(), T(0)); }

    // Returns where the caller writes the next block.
    Planar<T> Next() { return All() + heldPairs; }

    // Returns that block, delayed. With an odd delay, first samples become second ones and vice
    // versa:
    //   held 1, delay 1   first  - 0 2 4     delayed block   first   - 1 3   (second)
    //                     second - 1 3 5                     second  0 2 4   (first, one on)
    Planar<const T> Delayed() {
        const Planar<T> all = All();
        return odd ? Planar<const T>{all.im, all.re + 1} : Planar<const T>(all);
    }

    // Takes the block in, so that Next() can receive another one.
    void Advance() {
        const Planar<T> all = All();
        std::memmove(all.re, all.re + block, heldPairs * sizeof(T));
        std::memmove(all.im, all.im + block, heldPairs * sizeof(T));
    }

private:
    static constexpr size_t W = kWidth<typename WidestVector<T>::Type, T>;

    // Begins where it must so that the next block starts at a vector's alignment.
    Planar<T> All() {
        const size_t first = UpToVector(heldPairs) - heldPairs;
        return Planar<T>{pairs.data(), pairs.data() + pairs.size() / 2} + first;
    }
    static size_t UpToVector(size_t count) { return (count + W - 1) / W * W; }

    OwnedArray<T> pairs;
    size_t heldPairs = 0, block = 0;
    bool odd = false;
};
