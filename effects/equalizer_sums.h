// The equalizer's nine running sums over a chunk of frames, as a run of dsp/runs.h.
#pragma once
#include <array>
#include <cstddef>
#include <type_traits>

#include "dsp/code_generation.h"
#include "dsp/lanes.h"
#include "dsp/samples.h"

// Returns the half-width D of average k.
constexpr size_t HalfWidth(size_t k) {
    return size_t{1} << k;
}

constexpr size_t kSums = 9;

// The run holds the sums of as many channels as V has lanes, in registers. For each frame, a sum
// adds the input D frames ahead of the centre, is stored, and subtracts the input D frames behind
// it.
template <typename Real, typename V, size_t kInterleaved, size_t kRow>
struct SumRun {
    // The number of vectors that hold two sums of two channels each, so that all fit into
    // registers.
    static constexpr size_t kPairs = kWidth<V, Real> == 2 && std::is_same_v<Real, float> ? 4 : 0;

    SumRun() = default;
    // Loads the sums of the channels from `first` on from `kept`; Keep stores them there.
    SumRun(const Real* centres, Real* rowsOut, const Real (&kept)[kSums][kMaxChannels],
           size_t first)
        : centre(centres + first), rows(rowsOut + first) {
        if constexpr (kPairs != 0)
            for (size_t k = 0; k < kPairs; ++k) pairs[k] = LoadTwos(kept[2 * k], kept[2 * k + 1]);
        for (size_t k = 2 * kPairs; k < kSums; ++k) sums[k] = Load<V>(kept[k] + first);
    }
    void Keep(Real (&kept)[kSums][kMaxChannels], size_t first) const {
        if constexpr (kPairs != 0)
            for (size_t k = 0; k < kPairs; ++k) StoreTwos(kept[2 * k], kept[2 * k + 1], pairs[k]);
        for (size_t k = 2 * kPairs; k < kSums; ++k) Store(kept[k] + first, sums[k]);
    }
    ORVANE_LANE_INLINE void Step(size_t i) {
        const Real* const at = centre + i * kInterleaved;
        Real* const to = rows + i * kInterleaved;
        ForEachConstant<kPairs>([this, at, to](auto k) { this->template StepTwo<2 * k>(at, to); });
        ForEachIndex<kSums - 2 * kPairs>(
            [this, at, to](size_t k) { StepOne(2 * kPairs + k, at, to); });
    }
    ORVANE_LANE_INLINE void StepOne(size_t k, const Real* at, Real* to) {
        const size_t distance = HalfWidth(k) * kInterleaved;
        sums[k] += Load<V>(at + distance);
        Store(to + k * kRow, sums[k]);
        sums[k] -= Load<V>(at - distance);
    }
    template <size_t k>
    [[gnu::always_inline]] void StepTwo(const Real* at, Real* to) {
        constexpr size_t kDistance = HalfWidth(k) * kInterleaved;
        FourFloats& both = pairs[k / 2];
        both += LoadTwos(at + kDistance, at + 2 * kDistance);
        StoreTwos(to + k * kRow, to + (k + 1) * kRow, both);
        both -= LoadTwos(at - kDistance, at - 2 * kDistance);
    }
    const Real* centre;
    Real* rows;
    V sums[kSums];
    std::array<FourFloats, kPairs> pairs;
};
