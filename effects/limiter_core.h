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
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>

#include "dsp/arm_state.h"
#include "dsp/stream.h"
#include "effects/limiter_arithmetic.h"

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

    // The same bits in chunks that don't leave a lap, which Room frames do not: first the gains
    // of a chunk, then its products. If one exceeds the gate, which moves the gains, frame by
    // frame. Runner (runs.h) runs the gains, alone or beside another recurrence.
    template <typename Runner>
    void ProcessChunk(Sample* samples, uint32_t count, Runner runner);
    // ProcessChunk to 16 bits, of floats as samples.h has them, of integers the upper ones; what is
    // left in `samples` means nothing. For processors without floats. False if it can't be done so:
    // `samples` hold the outputs, `out` nothing.
    bool ProcessChunkToShort(Sample* samples, uint32_t count, int16_t* out);
    // Frames that stay in a lap, `ahead` frames from now.
    uint32_t Room(uint32_t ahead = 0) const { return kLap - (next + ahead) % kLap; }

private:
    static constexpr uint32_t kWindow = 256, kLap = 128, kLaps = kWindow / kLap;
    // Callers keep what they do with a lap in arrays of one chunk.
    static_assert(kLap <= kChunkFrames && kWindow % kLap == 0);
    template <typename V>
    struct GainRun;
    template <typename V>
    struct RestRun;

    struct State {
        Sample running[kChannels] = {};  // the largest magnitude of this lap
        Sample smoothed[kChannels];      // smoothed target
        Sample gain[kChannels];          // applied to the delayed sample
        int32_t age[kChannels] = {};     // frames since limiting began, to 256; 0: not limiting
    };

    uint32_t InLap() const { return next % kLap; }
    bool Limiting() const;
    bool AtRest() const;
    ORVANE_ARM_STATE bool AnyAbove(const Sample* samples, size_t count) const;
    template <typename Runner>
    void MakeGains(const Sample* samples, uint32_t count, Sample* gains, Runner runner);
    template <template <typename> typename Run, typename Runner>
    void RunGains(const Sample* samples, uint32_t count, Sample* gains, Runner runner);
    void ForgetWindow();
    ORVANE_ARM_STATE void OpenLap();
    template <typename V>
    void MakeTails(size_t first);
    void MakeWindow();
    const Sample* Delayed();
    bool Multiply(uint32_t count, Sample* gains);
    void Advance(Sample* samples, const Sample* output, uint32_t count);

    Sample gate = Arithmetic::kInitialGate;
    State state;
    uint32_t next = 0;                   // frame of the ring that comes next
    uint32_t framesSinceGate = kWindow;  // to 256
    // The ring; behind it frame 0 again, so that the frames behind those of a chunk lie together.
    Sample ring[(kWindow + 1) * kChannels] = {};
    Sample laps[kLaps][kChannels] = {};  // the largest magnitude of each but the present one
    Sample tails[(kLap + 1) * kChannels] = {};
};

extern template class LimiterCore<FloatLimiting, 1>;
extern template class LimiterCore<FloatLimiting, 2>;
extern template class LimiterCore<Q24Limiting, 1>;
extern template class LimiterCore<Q24Limiting, 2>;

// One channel whose samples lie `stride` apart, in place, a lap's worth at a time.
template <typename Arithmetic>
void ProcessStrided(LimiterCore<Arithmetic, 1>& core, typename Arithmetic::Sample* samples,
                    uint32_t frames, uint32_t stride) {
    typename Arithmetic::Sample run[kChunkFrames];
    for (uint32_t left = frames; left > 0;) {
        const uint32_t count = std::min<uint32_t>(left, std::size(run));
        for (size_t i = 0; i < count; ++i) run[i] = samples[i * stride];
        core.Process(run, count);
        for (size_t i = 0; i < count; ++i, samples += stride) *samples = run[i];
        left -= count;
    }
}

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
    void ProcessChunk(Sample* samples, uint32_t count, uint32_t channels, Runner runner) {
        if (channels == 1) mono.ProcessChunk(samples, count, runner);
        if (channels == 2) stereo.ProcessChunk(samples, count, runner);
    }
    bool ProcessChunkToShort(Sample* samples, uint32_t count, uint32_t channels, int16_t* out) {
        return channels == 1 ? mono.ProcessChunkToShort(samples, count, out)
                             : stereo.ProcessChunkToShort(samples, count, out);
    }
    uint32_t Room(uint32_t ahead, uint32_t channels) const {
        return channels == 1 ? mono.Room(ahead) : stereo.Room(ahead);
    }

private:
    LimiterCore<Arithmetic, 1> mono;
    LimiterCore<Arithmetic, 2> stereo;
};
