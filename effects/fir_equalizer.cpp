#include "effects/fir_equalizer.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <new>
#include <type_traits>

#include "dsp/code_generation.h"
#include "dsp/lanes.h"
#include "dsp/runs.h"
#include "dsp/samples.h"
#include "effects/equalizer_sums.h"

namespace {

// Returns the weight of sum k: 1 / (2 D), not one divided by the number of samples.
template <typename Real>
constexpr auto kWeights = [] {
    std::array<Real, kSums> weights{};
    for (size_t k = 0; k < kSums; ++k) weights[k] = Real(0.5) / static_cast<Real>(HalfWidth(k));
    return weights;
}();

// Computes the outputs for as many neighbouring centres as V has lanes, from the rows of sums.
template <typename V, size_t kRow, typename Real>
ORVANE_LANE_INLINE V AddBands(const Real* centre, const Real* rows, const V* gains) {
    V finer = Load<V>(centre), y = V{};
    const auto addBand = [&, rows, gains](auto k) {
        const V average = Load<V>(rows + k * kRow) * kWeights<Real>[k];
        const V band = gains[k] * (finer - average);
        y = k == 0 ? band : y + band;
        finer = average;
    };
    ForEachIndex<kSums>(addBand);
    return gains[kSums] * finer + y;
}

template <typename V>
ORVANE_LANE_INLINE void ToFloats(float* to, V from) {
    if constexpr (std::is_same_v<V, double>)
        *to = static_cast<float>(from);
    else
        Store(to, from);
}

// Appends a chunk of at most kChunkFrames frames to the history and returns the centre of the first
// one. `State` is FIREqualizer::State.
template <uint32_t kInterleaved, typename State, typename Sample>
auto TakeIn(State& s, const Sample* samples, uint32_t frames) {
    if (s.next + frames > State::kReach + State::kMove) {
        std::memmove(s.history, s.history + size_t{s.next - State::kReach} * kInterleaved,
                     size_t{State::kReach} * kInterleaved * sizeof s.history[0]);
        s.next = State::kReach;
    }
    auto* const newest = s.history + size_t{s.next} * kInterleaved;
    ConvertSamples(samples, newest, size_t{frames} * kInterleaved);
    s.next += frames;
    return newest - size_t{State::kDelay} * kInterleaved;
}

// Computes a chunk's outputs from its sums.
template <size_t kRow, typename Real, typename State>
void AddAllBands(const State& s, const Real* centre, const Real* rows, size_t count,
                 float* samples) {
    constexpr size_t kBands = kSums + 1;
    using V = typename WidestVector<Real>::Type;
    V gains[kBands];
    for (size_t k = 0; k < kBands; ++k) gains[k] = Broadcast<V>(s.bandGains[k]);
    size_t i = 0;
    for (; count - i >= kWidth<V, Real>; i += kWidth<V, Real>)
        ToFloats(samples + i, AddBands<V, kRow>(centre + i, rows + i, gains));
    for (; i < count; ++i)
        ToFloats(samples + i, AddBands<Real, kRow>(centre + i, rows + i, s.bandGains));
}

template <typename Real, uint32_t kInterleaved, typename State>
void ProcessChunk(State& s, float* samples, uint32_t frames) {
    constexpr size_t kRow = size_t{kChunkFrames} * kInterleaved;
    const Real* const centre = TakeIn<kInterleaved>(s, samples, frames);
    Real rows[kSums * kRow];
    using Together = typename VectorOf<Real, kLanes == 1 ? 1 : kInterleaved>::Type;
    for (size_t c = 0; c < kInterleaved; c += kWidth<Together, Real>) {
        SumRun<Real, Together, kInterleaved, kRow> run(centre, rows, s.runningSums, c);
        RunAlone(run, frames);
        run.Keep(s.runningSums, c);
    }
    AddAllBands<kRow>(s, centre, rows, size_t{frames} * kInterleaved, samples);
}

// The differences between the variants.
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
void FIREqualizer<Sample, Real>::Set(ParameterId id, float value, int band) {
    if (id == PARAM_EQUALIZER_ENABLE) SetEnable(value != 0);
    if (id == PARAM_EQUALIZER_BANDLEVEL) SetBandLevel(band, value);
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
    state->core.Reset();
}

template <typename Sample, typename Real>
bool FIREqualizer<Sample, Real>::Processes() const {
    return state && enabled && samplingRate >= kLowestRateHz && samplingRate <= kHighestRateHz &&
           channels >= 1 && channels <= kMaxChannels;
}

template <typename Sample, typename Real>
void FIREqualizer<Sample, Real>::Process(float* samples, unsigned int frames) {
    if (!Processes()) return;
    const size_t done = ProcessUnpacked(nullptr, samples, frames);
    ProcessFloats(samples + done * channels, frames - done);
}

// Processes in unpacked floats: reads `in`, or `samples` if `in` is null. Returns the number of
// frames before the first chunk that these can't hold; from there on the equalizer uses floats.
template <typename Sample, typename Real>
size_t FIREqualizer<Sample, Real>::ProcessUnpacked(const int16_t* in, float* samples,
                                                   size_t frames) {
    const size_t done = state->core.Process(in, samples, frames, channels, state->bandGains);
    if (done < frames && state->core.HandOver(state->history, state->runningSums, channels))
        state->next = State::kReach;
    return done;
}

template <typename Sample, typename Real>
void FIREqualizer<Sample, Real>::ProcessFloats(float* samples, size_t frames) {
    while (frames > 0) {
        const auto count = static_cast<uint32_t>(std::min<size_t>(frames, kChunkFrames));
        if (channels == 1)
            ProcessChunk<Real, 1>(*state, samples, count);
        else
            ProcessChunk<Real, 2>(*state, samples, count);
        samples += size_t{count} * channels;
        frames -= count;
    }
}

template <typename Sample, typename Real>
void FIREqualizer<Sample, Real>::Begin(Chunk& chunk, const int16_t* in, float* samples,
                                       uint32_t count) {
    chunk.count = 0;
    const bool processes = Processes();
    if (processes && ProcessUnpacked(in, samples, count) == count) return;
    if constexpr (kRunsBeside) {
        if (processes && channels == 2) {
            chunk.count = count;
            const Real* const centre = TakeIn<2>(*state, in, count);
            chunk.run = {centre, chunk.rows, state->runningSums, 0};
            return;
        }
    }
    ShortsToFloats(in, samples, size_t{count} * channels);
    if (processes) ProcessFloats(samples, count);
}

template <typename Sample, typename Real>
void FIREqualizer<Sample, Real>::Finish(const Chunk& chunk, float* samples) {
    if (chunk.count == 0) return;
    if constexpr (kRunsBeside) {
        chunk.run.Keep(state->runningSums, 0);
        AddAllBands<kStereoRow>(*state, chunk.run.centre, chunk.rows, size_t{chunk.count} * 2,
                                samples);
    }
}

template class FIREqualizer<float, float>;
template class FIREqualizer<float, double>;
