#include "effects/fir_equalizer.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <new>
#include <type_traits>
#include <utility>

#include "dsp/lanes.h"
#include "dsp/runs.h"

namespace {

constexpr size_t HalfWidth(size_t k) {
    return size_t{1} << k;
}
// Of sum k. Not 1 / (2 half-width + 1), although that many samples are summed.
template <typename Real>
constexpr Real Weight(size_t k) {
    return Real(0.5) / static_cast<Real>(HalfWidth(k));
}

constexpr size_t kSums = 9;

// act(k) for k from 0 to kSums - 1; unrolled, so that the sums stay in registers, where registers
// can hold a float.
template <typename Act>
ORVANE_LANE_INLINE void ForEachSum(Act act) {
    if constexpr (kSoftFloat && kLanes == 1) {
        for (size_t k = 0; k < kSums; ++k) act(k);
    } else {
        [act]<size_t... k>(std::index_sequence<k...>) {
            (act(std::integral_constant<size_t, k>()), ...);
        }
        (std::make_index_sequence<kSums>());
    }
}

// Frame by frame the sums of as many channels as V has lanes, in registers: each takes in the input
// D ahead of the centre, is stored, and gives up the one D behind.
template <typename Real, typename V, size_t kInterleaved, size_t kRow>
struct SumRun {
    // Two sums of two channels share a vector, so that all stay in registers.
    static constexpr size_t kPairs = kWidth<V, Real> == 2 && std::is_same_v<Real, float> ? 4 : 0;

    // From and to the sums of channel `first` on.
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
        ForEachSum([this, at, to](auto k) {
            const size_t distance = HalfWidth(k) * kInterleaved;
            if constexpr (kPairs != 0) {
                if constexpr (k < 2 * kPairs) {
                    if constexpr (k % 2 != 0) return;
                    FourFloats& both = pairs[k / 2];
                    both += LoadTwos(at + distance, at + 2 * distance);
                    StoreTwos(to + k * kRow, to + (k + 1) * kRow, both);
                    both -= LoadTwos(at - distance, at - 2 * distance);
                    return;
                }
            }
            sums[k] += Load<V>(at + distance);
            Store(to + k * kRow, sums[k]);
            sums[k] -= Load<V>(at - distance);
        });
    }
    const Real* centre;
    Real* rows;
    V sums[kSums];
    std::array<FourFloats, kPairs> pairs;
};

// Outputs for as many neighbouring centres as V has lanes, from the rows of sums.
template <typename V, size_t kRow, typename Real>
ORVANE_LANE_INLINE V AddBands(const Real* centre, const Real* rows, const V* gains) {
    V finer = Load<V>(centre), y = V{};
    ForEachSum([&, rows, gains](auto k) {
        const V average = Load<V>(rows + k * kRow) * Weight<Real>(k);
        const V band = gains[k] * (finer - average);
        y = k == 0 ? band : y + band;
        finer = average;
    });
    return gains[kSums] * finer + y;
}

template <typename V>
ORVANE_LANE_INLINE void ToFloats(float* to, V from) {
    if constexpr (std::is_same_v<V, double>)
        *to = static_cast<float>(from);
    else
        Store(to, from);
}

// At most State::kChunk frames, and not beyond the end of the history. State: FIREqualizer's.
template <typename Real, uint32_t kInterleaved, typename State>
void ProcessChunk(State& s, float* samples, uint32_t frames) {
    constexpr size_t kBands = kSums + 1;
    const size_t count = size_t{frames} * kInterleaved;
    Real* const newest = s.history + size_t{s.next} * kInterleaved;
    for (size_t i = 0; i < count; ++i) newest[i] = static_cast<Real>(samples[i]);
    s.next += frames;

    constexpr size_t kRow = size_t{State::kChunk} * kInterleaved;
    const Real* const centre = newest - size_t{State::kDelay} * kInterleaved;
    Real rows[kSums * kRow];
    using Together = typename VectorOf<Real, kLanes == 1 ? 1 : kInterleaved>::Type;
    for (size_t c = 0; c < kInterleaved; c += kWidth<Together, Real>) {
        SumRun<Real, Together, kInterleaved, kRow> run(centre, rows, s.runningSums, c);
        RunAlone(run, frames);
        run.Keep(s.runningSums, c);
    }

    using V = typename WidestVector<Real>::Type;
    V gains[kBands];
    for (size_t k = 0; k < kBands; ++k) gains[k] = Broadcast<V>(s.bandGains[k]);
    size_t i = 0;
    for (; count - i >= kWidth<V, Real>; i += kWidth<V, Real>)
        ToFloats(samples + i, AddBands<V, kRow>(centre + i, rows + i, gains));
    for (; i < count; ++i)
        ToFloats(samples + i, AddBands<Real, kRow>(centre + i, rows + i, s.bandGains));

    if (s.next == State::kReach + State::kMove) {
        std::copy_n(newest + count - size_t{State::kReach} * kInterleaved,
                    size_t{State::kReach} * kInterleaved, s.history);
        s.next = State::kReach;
    }
}

// Hands the core's history over, as if it had not been in use.
template <typename State>
void LeaveCore(State& s, size_t channels) {
    for (size_t c = 0; c < channels; ++c) {
        for (size_t i = 0; i < State::kReach; ++i)
            s.history[i * channels + c] = s.core.Past(c, State::kReach - i);
        for (size_t k = 0; k < kSums; ++k) s.runningSums[k][c] = s.core.Sum(c, k);
    }
    s.next = State::kReach;
    s.usesCore = false;
}

// What the variants differ in.
template <typename Real>
struct Laws;
template <>
struct Laws<float> {
    static constexpr bool kForgetsWhenEnabled = true;
    static float GainAbove0(float level) { return 2 * level + 1; }
};
template <>
struct Laws<double> {
    static constexpr bool kForgetsWhenEnabled = false;
    static double GainAbove0(double level) { return level > 1 ? 2 : level + 1; }
};

template <typename Real>
Real GainOf(float level) {
    const Real L = level;
    if (L > 0) return Laws<Real>::GainAbove0(L);
    return L < -1 ? 0 : L + 1;
}

}  // namespace

template <typename Sample, typename Real>
FIREqualizer<Sample, Real>::FIREqualizer() : state(new (std::nothrow) State()) {
    for (int band = 0; band < static_cast<int>(kBands); ++band) SetBandLevel(band, 0.0F);
    Reset();
    SetSamplingRate(44100);
    SetChannels(2);
}

template <typename Sample, typename Real>
FIREqualizer<Sample, Real>::~FIREqualizer() = default;

template <typename Sample, typename Real>
void FIREqualizer<Sample, Real>::SetSamplingRate(unsigned int rate) {
    samplingRate = rate;
}

template <typename Sample, typename Real>
void FIREqualizer<Sample, Real>::SetChannels(unsigned int count) {
    if (count == channels) return;
    channels = count;
    Reset();
}

template <typename Sample, typename Real>
bool FIREqualizer<Sample, Real>::SetEnable(bool enable) {
    if (enable == enabled) return false;
    if (enable && Laws<Real>::kForgetsWhenEnabled) Reset();
    enabled = enable;
    return true;
}

template <typename Sample, typename Real>
void FIREqualizer<Sample, Real>::SetBandLevel(int band, float level) {
    if (!state || band < 0 || band >= static_cast<int>(kBands)) return;
    const Real gain = GainOf<Real>(level);
    if (!std::isfinite(gain)) return;
    state->bandGains[static_cast<int>(kBands) - 1 - band] = gain;
}

template <typename Sample, typename Real>
void FIREqualizer<Sample, Real>::Reset() {
    if (!state) return;
    std::fill_n(state->history, State::kReach * kMaxChannels, Real(0));
    std::memset(state->runningSums, 0, sizeof state->runningSums);
    state->next = State::kReach;
    if constexpr (kHasCore) state->core.Reset();
    state->usesCore = kHasCore;
}

template <typename Sample, typename Real>
void FIREqualizer<Sample, Real>::Process(float* samples, unsigned int frames) {
    const bool supported = samplingRate >= kLowestRateHz && samplingRate <= kHighestRateHz &&
                           channels >= 1 && channels <= kMaxChannels;
    if (!state || !enabled || !supported) return;
    if constexpr (kHasCore) {
        if (state->usesCore) {
            if (state->core.Process(samples, frames, channels, state->bandGains)) return;
            LeaveCore(*state, channels);
        }
    }
    while (frames > 0) {
        const uint32_t count =
            std::min({frames, State::kChunk, State::kReach + State::kMove - state->next});
        if (channels == 1)
            ProcessChunk<Real, 1>(*state, samples, count);
        else
            ProcessChunk<Real, 2>(*state, samples, count);
        samples += size_t{count} * channels;
        frames -= count;
    }
}

template class FIREqualizer<float, float>;
template class FIREqualizer<float, double>;
