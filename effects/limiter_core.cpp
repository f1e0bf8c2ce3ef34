#include "effects/limiter_core.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace {

// Finds out whether any sample exceeds a gate that isn't negative, in the sense of
// Q24Limiting::Above, one sample at a time.
class Exceeding {
public:
    explicit Exceeding(int32_t gate) : offset(static_cast<uint32_t>(gate)) {}
    [[gnu::always_inline]] void Take(int32_t sample) {
        largest = std::max(largest, static_cast<uint32_t>(sample) + offset);
    }
    // Shifted by `offset`, samples from -gate to gate are 0 to 2 gate.
    bool Any() const { return largest > 2 * offset; }

private:
    uint32_t offset, largest = 0;
};

// Q24Limiting::MakeShorts in one pass, for processors without vectors.
ORVANE_ARM_STATE bool ShortsInOnePass(const int32_t* x, const int32_t* gains, int32_t gate,
                                      int16_t* out, size_t count) {
    Exceeding exceeding(gate);
    for (size_t i = 0; i < count; ++i) {
        const int32_t output = MulQ24(x[i], gains[i]);
        exceeding.Take(output);
        out[i] = static_cast<int16_t>(output >> kSampleShift);
    }
    return !exceeding.Any();
}

}  // namespace

ORVANE_ARM_STATE bool Q24Limiting::AnyAbove(const int32_t* samples, size_t count, int32_t gate) {
    if constexpr (kLanes > 1) return LimiterLoops::AnyAbove(samples, count, gate);
    Exceeding exceeding(gate);
    for (size_t i = 0; i < count; ++i) exceeding.Take(samples[i]);
    return exceeding.Any();
}

bool Q24Limiting::MakeShorts(const int32_t* x, int32_t* gains, int32_t gate, int16_t* out,
                             size_t count) {
    if constexpr (kLanes > 1) return LimiterLoops::MakeShorts(x, gains, gate, out, count);
    return ShortsInOnePass(x, gains, gate, out, count);
}

template <typename Arithmetic, uint32_t kChannels>
LimiterCore<Arithmetic, kChannels>::LimiterCore() {
    std::fill(std::begin(state.smoothed), std::end(state.smoothed), Arithmetic::kUnity);
    std::fill(std::begin(state.gain), std::end(state.gain), Arithmetic::kUnity);
}

template <typename Arithmetic, uint32_t kChannels>
void LimiterCore<Arithmetic, kChannels>::SetGate(float newGate) {
    gate = Arithmetic::Gate(newGate);
    framesSinceGate = 0;
    if (Limiting()) MakeWindow();
}

template <typename Arithmetic, uint32_t kChannels>
void LimiterCore<Arithmetic, kChannels>::Reset() {
    const Sample keptGate = gate;
    *this = LimiterCore();
    gate = keptGate;
}

template <typename Arithmetic, uint32_t kChannels>
bool LimiterCore<Arithmetic, kChannels>::AnyAbove(const Sample* samples, size_t count) const {
    return Arithmetic::AnyAbove(samples, count, gate);
}

template <typename Arithmetic, uint32_t kChannels>
void LimiterCore<Arithmetic, kChannels>::Process(Sample* samples, uint32_t frames) {
    while (frames > 0) {
        const uint32_t count = std::min(frames, Room());
        ProcessChunk(samples, count);
        samples += size_t{count} * kChannels;
        frames -= count;
    }
}

// Like ProcessChunkToShort, but in place.
template <typename Arithmetic, uint32_t kChannels>
void LimiterCore<Arithmetic, kChannels>::ProcessChunk(Sample* samples, uint32_t count) {
    const size_t size = size_t{count} * kChannels;
    const State before = state;
    Sample output[kLap * kChannels];
    MakeGains(samples, count, output, Alone());
    Arithmetic::ApplyRun(Delayed(), output, size);
    if (AnyAbove(output, size)) return ProcessFrames(before, samples, count);
    Advance(samples, count);
    std::memcpy(samples, output, size * sizeof(Sample));
}

// Processes a chunk again, frame by frame, starting from the state before it.
template <typename Arithmetic, uint32_t kChannels>
void LimiterCore<Arithmetic, kChannels>::ProcessFrames(const State& before, Sample* samples,
                                                       uint32_t count) {
    state = before;
    for (size_t i = 0; i < size_t{count} * kChannels; i += kChannels) ProcessFrame(samples + i);
}

template <typename Arithmetic, uint32_t kChannels>
void LimiterCore<Arithmetic, kChannels>::ProcessFrame(Sample* frame) {
    Sample gains[kChannels], output[kChannels];
    MakeGains(frame, 1, gains, Alone());
    const Sample* const delayed = Delayed();
    for (uint32_t c = 0; c < kChannels; ++c) {
        output[c] = Arithmetic::Apply(delayed[c], gains[c]);
        const Sample magnitude = Arithmetic::Magnitude(delayed[c]);
        if (Arithmetic::Greater(Arithmetic::Magnitude(output[c]), gate)) {
            typename Arithmetic::template Quotient<Sample> quotient;
            state.gain[c] = quotient(gate, magnitude);
            output[c] = Arithmetic::Apply(delayed[c], state.gain[c]);
        }
    }
    Advance(frame, 1);
    std::memcpy(frame, output, sizeof output);
}

template <typename Arithmetic, uint32_t kChannels>
bool LimiterCore<Arithmetic, kChannels>::Limiting() const {
    int32_t any = 0;
    for (const int32_t age : state.age) any |= age;
    return any != 0;
}

// Returns true if a step toward a target of 1 doesn't change the state.
template <typename Arithmetic, uint32_t kChannels>
bool LimiterCore<Arithmetic, kChannels>::AtRest() const {
    for (uint32_t c = 0; c < kChannels; ++c) {
        const Sample smoothed = Arithmetic::Smooth(state.smoothed[c], Arithmetic::kUnity);
        const Sample gain = std::min(smoothed, Arithmetic::Recover(state.gain[c]));
        if (smoothed != state.smoothed[c] || gain != state.gain[c]) return false;
    }
    return true;
}

template <typename Arithmetic, uint32_t kChannels>
void LimiterCore<Arithmetic, kChannels>::ForgetWindow() {
    std::fill(std::begin(state.running), std::end(state.running), Sample(0));
    std::fill(&laps[0][0], &laps[0][0] + kLaps * kChannels, Sample(0));
    std::fill(std::begin(maxima), std::end(maxima), Sample(0));
}

// Does what MakeWindow does, for the beginning of a lap when every frame counts.
template <typename Arithmetic, uint32_t kChannels>
void LimiterCore<Arithmetic, kChannels>::OpenLap() {
    const uint32_t present = next / kLap;
    for (uint32_t c = 0; c < kChannels; ++c) {
        laps[(present + kLaps - 1) % kLaps][c] = state.running[c];
        state.running[c] = 0;
        Sample maximum = 0;
        for (uint32_t other = 1; other < kLaps; ++other)
            maximum = Arithmetic::Larger(laps[(present + other) % kLaps][c], maximum);
        maxima[kLap * kChannels + c] = maximum;
    }
    if constexpr (kLanes == 1) {
        const Sample* const lap = ring + size_t{next} * kChannels;
        for (size_t i = size_t{kLap} * kChannels; i-- > 0;)
            maxima[i] = Arithmetic::Larger(Arithmetic::Magnitude(lap[i]), maxima[i + kChannels]);
    } else {
        using V = typename VectorOf<Sample, Arithmetic::kTakesVectors ? kChannels : 1>::Type;
        for (size_t c = 0; c < kChannels; c += kWidth<V, Sample>) MakeMaxima<V>(c);
    }
}

// Makes the maxima of as many channels as V has lanes, from `first` on. Takes four frames at a time
// and compares them among themselves first, so that only one step of four waits for the previous
// result.
template <typename Arithmetic, uint32_t kChannels>
template <typename V>
void LimiterCore<Arithmetic, kChannels>::MakeMaxima(size_t first) {
    constexpr size_t kStep = 4;
    const Sample* const lap = ring + size_t{next} * kChannels + first;
    Sample* const to = maxima + first;
    V maximum = Load<V>(to + kLap * kChannels);
    for (size_t i = kLap; i > 0;) {
        V largest = {}, own[kStep];
        for (size_t k = kStep; k-- > 0;) {
            --i;
            largest =
                Arithmetic::Larger(Arithmetic::Magnitude(Load<V>(lap + i * kChannels)), largest);
            own[k] = largest;
        }
        for (size_t k = 1; k < kStep; ++k)
            Store(to + (i + k) * kChannels, Arithmetic::Larger(own[k], maximum));
        maximum = Arithmetic::Larger(largest, maximum);
        Store(to + i * kChannels, maximum);
    }
}

// Computes the window's largest magnitudes from the frames that count.
template <typename Arithmetic, uint32_t kChannels>
void LimiterCore<Arithmetic, kChannels>::MakeWindow() {
    const uint32_t present = next / kLap;
    for (uint32_t c = 0; c < kChannels; ++c) {
        const auto largest = [this, c](uint32_t begin, uint32_t end, Sample sofar) {
            for (uint32_t slot = begin; slot < end; ++slot) {
                const uint32_t age = (next + kWindow - 1 - slot) % kWindow;
                if (age < static_cast<uint32_t>(state.age[c]))
                    sofar = Arithmetic::Larger(Arithmetic::Magnitude(ring[slot * kChannels + c]),
                                               sofar);
            }
            return sofar;
        };
        Sample maximum = 0;
        for (uint32_t other = 1; other < kLaps; ++other) {
            const uint32_t lap = (present + other) % kLaps;
            laps[lap][c] = largest(lap * kLap, (lap + 1) * kLap, 0);
            maximum = Arithmetic::Larger(laps[lap][c], maximum);
        }
        const uint32_t begin = present * kLap;
        state.running[c] = largest(begin, next, 0);
        maxima[kLap * kChannels + c] = maximum;
        for (uint32_t k = kLap; k-- > InLap();) {
            maximum = largest(begin + k, begin + k + 1, maximum);
            maxima[k * kChannels + c] = maximum;
        }
    }
}

// Returns the frames delayed by 255, for the next frames up to the end of the lap.
template <typename Arithmetic, uint32_t kChannels>
auto LimiterCore<Arithmetic, kChannels>::Delayed() -> const Sample* {
    std::copy_n(ring, kChannels, ring + kWindow * kChannels);
    return ring + (next + 1) * kChannels;
}

// Applies the gains and writes 16 bits. Returns false if an output exceeds the gate.
template <typename Arithmetic, uint32_t kChannels>
bool LimiterCore<Arithmetic, kChannels>::MakeShorts(Sample* gains, uint32_t count, int16_t* out) {
    return Arithmetic::MakeShorts(Delayed(), gains, gate, out, size_t{count} * kChannels);
}

// Stores the samples in the ring.
template <typename Arithmetic, uint32_t kChannels>
void LimiterCore<Arithmetic, kChannels>::Advance(const Sample* samples, uint32_t count) {
    std::memcpy(ring + size_t{next} * kChannels, samples,
                size_t{count} * kChannels * sizeof(Sample));
    next = (next + count) % kWindow;
    framesSinceGate = std::min(framesSinceGate + count, kWindow);
    for (int32_t& age : state.age) age = std::min<int32_t>(age, kWindow);
}

template class LimiterCore<FloatLimiting, 1>;
template class LimiterCore<FloatLimiting, 2>;
template class LimiterCore<Q24Limiting, 1>;
template class LimiterCore<Q24Limiting, 2>;
