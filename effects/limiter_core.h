// The one text of all limiters, for a channel or for interleaved frames of two; limiter.h says what
// they do.
//
// The newest 256 frames lie in a ring of two laps of 128. The largest magnitude of the 256 that end
// with frame p of a lap is the larger of two: of what the lap holds up to p, kept as it grows, and
// of the rest, made when the lap begins:
//
//   frames   0 .. p     p + 1 .. 127 of the last turn, and the other lap
//            running    tails[p + 1]
//
// Only frames since limiting began count. Earlier ones did not exceed the gate, so as long as the
// gate stays they change no target and may count too. After a change the window is made anew from
// those that do count, until every frame of it is younger than the change. A magnitude that isn't a
// number counts as 0.
#pragma once
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "dsp/arm_state.h"
#include "dsp/stream.h"
#include "effects/limiter_runs.h"

template <typename Arithmetic, uint32_t kChannels>
class LimiterCore {
public:
    using Sample = typename Arithmetic::Sample;

    LimiterCore();
    void SetGate(float newGate);
    void Reset();
    // One frame in place: the definition.
    void ProcessFrame(Sample* frame);
    // In place, interleaved.
    void Process(Sample* samples, uint32_t frames);

    // To 16 bits, and with the same bits as ProcessFrame on each frame. `samples` are overwritten.
    // `count` is at most Room(). The gains of the whole chunk are made first, then applied. If an
    // output would exceed the gate, the chunk is processed again frame by frame, because the gate
    // then moves the gains. Runner (dsp/runs.h) runs the gains, alone or beside another recurrence.
    template <typename Runner>
    void ProcessChunkToShort(Sample* samples, uint32_t count, int16_t* out, Runner runner);
    // Returns how many frames can be processed, beginning `ahead` frames from now, before the lap
    // ends.
    uint32_t Room(uint32_t ahead = 0) const { return kLap - (next + ahead) % kLap; }

private:
    static constexpr uint32_t kWindow = 256, kLap = 128, kLaps = kWindow / kLap;
    // Callers keep what they do with a lap in arrays of one chunk.
    static_assert(kLap <= kChunkFrames && kWindow % kLap == 0);
    using State = LimiterState<Sample, kChannels>;

    uint32_t InLap() const { return next % kLap; }
    bool Limiting() const;
    bool AtRest() const;
    bool AnyAbove(const Sample* samples, size_t count) const;
    template <typename Runner>
    void MakeGains(const Sample* samples, uint32_t count, Sample* gains, Runner runner);
    void ForgetWindow();
    ORVANE_ARM_STATE void OpenLap();
    template <typename V>
    void MakeTails(size_t first);
    void MakeWindow();
    const Sample* Delayed();
    void ProcessChunk(Sample* samples, uint32_t count);
    bool MakeShorts(Sample* gains, uint32_t count, int16_t* out);
    void ProcessFrames(const State& before, Sample* samples, uint32_t count);
    void Advance(const Sample* samples, uint32_t count);

    Sample gate = Arithmetic::kInitialGate;
    State state;
    uint32_t next = 0;                   // frame of the ring that comes next
    uint32_t framesSinceGate = kWindow;  // to 256
    // The ring; behind it frame 0 again, so that the frames behind those of a chunk lie together.
    Sample ring[(kWindow + 1) * kChannels] = {};
    Sample laps[kLaps][kChannels] = {};  // the largest magnitude of each but the present one
    Sample tails[(kLap + 1) * kChannels] = {};
};

template <typename Arithmetic, uint32_t kChannels>
template <typename Runner>
void LimiterCore<Arithmetic, kChannels>::ProcessChunkToShort(Sample* samples, uint32_t count,
                                                             int16_t* out, Runner runner) {
    if (count == 0) return runner();
    const State before = state;
    Sample gains[kLap * kChannels];
    MakeGains(samples, count, gains, runner);
    if (MakeShorts(gains, count, out)) return Advance(samples, count);
    ProcessFrames(before, samples, count);
    Arithmetic::Shorten(samples, out, size_t{count} * kChannels);
}

// The gains of `count` frames that don't leave the lap; moves the state on.
template <typename Arithmetic, uint32_t kChannels>
template <typename Runner>
void LimiterCore<Arithmetic, kChannels>::MakeGains(const Sample* samples, uint32_t count,
                                                   Sample* gains, Runner runner) {
    const GainFrames<Sample> frames = {samples, tails + (InLap() + 1) * kChannels, gains, gate};
    const bool limiting = Limiting();
    if (limiting || AnyAbove(samples, size_t{count} * kChannels)) {
        if (!limiting)
            ForgetWindow();
        else if (InLap() == 0)
            framesSinceGate < kWindow ? MakeWindow() : OpenLap();
        RunGains<true>(Arithmetic(), frames, state, count, runner);
    } else if (AtRest()) {
        for (uint32_t i = 0; i < count; ++i)
            std::memcpy(gains + i * kChannels, state.gain, sizeof state.gain);
        runner();
    } else {
        RunGains<false>(Arithmetic(), frames, state, count, runner);
    }
}

extern template class LimiterCore<FloatLimiting, 1>;
extern template class LimiterCore<FloatLimiting, 2>;
extern template class LimiterCore<Q24Limiting, 1>;
extern template class LimiterCore<Q24Limiting, 2>;

// One copy of what runs alone.
extern template void LimiterCore<FloatLimiting, 1>::ProcessChunkToShort(float*, uint32_t, int16_t*,
                                                                        Alone);
extern template void LimiterCore<FloatLimiting, 2>::ProcessChunkToShort(float*, uint32_t, int16_t*,
                                                                        Alone);
extern template void LimiterCore<Q24Limiting, 1>::ProcessChunkToShort(int32_t*, uint32_t, int16_t*,
                                                                      Alone);
extern template void LimiterCore<Q24Limiting, 2>::ProcessChunkToShort(int32_t*, uint32_t, int16_t*,
                                                                      Alone);

// A limiter of all channels of interleaved frames, 1 or 2: the samples of a limiter for each.
template <typename Arithmetic>
class FrameLimiter {
public:
    using Sample = typename Arithmetic::Sample;

    void SetGate(float gate) {
        mono.SetGate(gate);
        stereo.SetGate(gate);
    }
    // Forgets the history, as newly made; keeps the gate.
    void Reset() {
        mono.Reset();
        stereo.Reset();
    }
    // In place. A number of channels is kept to from one reset to the next.
    void Process(Sample* samples, uint32_t frames, uint32_t channels) {
        if (channels == 1) mono.Process(samples, frames);
        if (channels == 2) stereo.Process(samples, frames);
    }
    // As LimiterCore has them.
    template <typename Runner>
    void ProcessChunkToShort(Sample* samples, uint32_t count, uint32_t channels, int16_t* out,
                             Runner runner) {
        if (channels == 1) mono.ProcessChunkToShort(samples, count, out, runner);
        if (channels == 2) stereo.ProcessChunkToShort(samples, count, out, runner);
    }
    uint32_t Room(uint32_t ahead, uint32_t channels) const {
        return channels == 1 ? mono.Room(ahead) : stereo.Room(ahead);
    }

private:
    LimiterCore<Arithmetic, 1> mono;
    LimiterCore<Arithmetic, 2> stereo;
};
