// The code of all limiters, for one channel or for two interleaved channels. limiter.h says what
// they do.
//
// The window of the newest 256 frames is a ring of two laps of 128 frames. The largest magnitude in
// the window that ends with frame p of a lap is the larger of two values. `running` is the largest
// of the lap's frames up to p; it is updated with every frame. maxima[p + 1] is the largest of all
// others; the maxima are computed when the lap begins:
//
//   frames   0 .. p     p + 1 .. 127 of the previous turn, and the other lap
//            running    maxima[p + 1]
//
// Only frames since limiting began count. Earlier frames did not exceed the gate. As long as the
// gate stays the same, including them changes no target. After a change of the gate, the window is
// computed from the frames that count, until all of its frames are newer than the change. A NaN
// magnitude counts as 0, except where floats are unpacked: there no sample may be NaN.
#pragma once
#include <cstddef>
#include <cstdint>

#include "dsp/code_generation.h"
#include "dsp/samples.h"
#include "effects/limiter_arithmetic.h"

template <typename Arithmetic, uint32_t kChannels>
class LimiterCore {
public:
    using Sample = typename Arithmetic::Sample;

    LimiterCore();
    void SetGate(float newGate);
    void Reset();
    // Processes one frame in place. This is the definition of the other forms.
    void ProcessFrame(Sample* frame);
    // Processes interleaved frames in place.
    void Process(Sample* samples, uint32_t frames);

    // Processes one chunk of `count` frames to 16 bits, with the bits that ProcessFrame gives on
    // each frame. `count` is at most Room(), because a chunk must not cross the end of a lap.
    // Overwrites `samples`. The gains of the whole chunk are computed first, then applied. If an
    // output would exceed the gate, the chunk is processed again frame by frame, because the gate
    // then changes the gains. `runner` runs the gains, alone or interleaved with another recurrence
    // (dsp/runs.h).
    template <typename Runner>
    void ProcessChunkToShort(Sample* samples, uint32_t count, int16_t* out, Runner runner);
    // Returns how many frames can be processed, beginning `ahead` frames from now, before the lap
    // ends.
    uint32_t Room(uint32_t ahead = 0) const { return kLap - (next + ahead) % kLap; }

private:
    static constexpr uint32_t kWindow = 256, kLap = 128, kLaps = kWindow / kLap;
    // Callers use arrays of one chunk for the frames of a lap.
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
    void MakeMaxima(size_t first);
    void MakeWindow();
    const Sample* Delayed();
    void ProcessChunk(Sample* samples, uint32_t count);
    bool MakeShorts(Sample* gains, uint32_t count, int16_t* out);
    void ProcessFrames(const State& before, Sample* samples, uint32_t count);
    void Advance(const Sample* samples, uint32_t count);

    Sample gate = Arithmetic::kInitialGate;
    State state;
    uint32_t next = 0;                   // index in the ring of the next frame
    uint32_t framesSinceGate = kWindow;  // since the gate changed; stops at 256
    // The ring, followed by a copy of frame 0, so that the delayed frames of a chunk are
    // contiguous.
    Sample ring[(kWindow + 1) * kChannels] = {};
    Sample laps[kLaps][kChannels] = {};  // the largest magnitude of each lap but the present one
    Sample maxima[(kLap + 1) * kChannels] = {};
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

// Computes the gains of `count` frames of one lap and moves the state on.
template <typename Arithmetic, uint32_t kChannels>
template <typename Runner>
void LimiterCore<Arithmetic, kChannels>::MakeGains(const Sample* samples, uint32_t count,
                                                   Sample* gains, Runner runner) {
    const GainFrames<Sample> frames = {samples, maxima + (InLap() + 1) * kChannels, gains, gate};
    const bool limiting = Limiting();
    if (limiting || AnyAbove(samples, size_t{count} * kChannels)) {
        if (!limiting)
            ForgetWindow();
        else if (InLap() == 0)
            framesSinceGate < kWindow ? MakeWindow() : OpenLap();
        Arithmetic::template RunGains<true>(frames, state, count, runner);
    } else if (AtRest()) {
        for (uint32_t i = 0; i < count * kChannels; ++i) gains[i] = state.gain[i % kChannels];
        runner();
    } else {
        Arithmetic::template RunGains<false>(frames, state, count, runner);
    }
}

// A limiter for interleaved frames of 1 or 2 channels. It gives the samples of one limiter per
// channel.
template <typename Arithmetic>
class FrameLimiter {
public:
    using Sample = typename Arithmetic::Sample;

    void SetGate(float gate) {
        mono.SetGate(gate);
        stereo.SetGate(gate);
    }
    // Clears the history, as in a new object; keeps the gate.
    void Reset() {
        mono.Reset();
        stereo.Reset();
    }
    // Processes frames in place. The number of channels must stay the same between two resets.
    void Process(Sample* samples, uint32_t frames, uint32_t channels) {
        if (channels == 1) mono.Process(samples, frames);
        if (channels == 2) stereo.Process(samples, frames);
    }
    // These do what LimiterCore's functions do.
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
