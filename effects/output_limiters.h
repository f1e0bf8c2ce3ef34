// The end of the chain: the output gain, a limiter for each channel, and conversion to 16 bits.
//
// Delay: 255 frames, always. Allocates: never. Thread: no lock of its own; the owner serialises all
// calls.
#pragma once
#include <cstddef>
#include <cstdint>

#include "dsp/samples.h"
#include "effects/limiter_core.h"
#include "table/parameters.h"

class OutputLimiters {
public:
    // Interleaved channels, 1 or 2, kept to from one reset to the next.
    void SetChannels(uint32_t count) { channels = count; }
    // One parameter of the table, in its units. Others are ignored.
    void Set(ParameterId id, float value, int /*band*/) {
        if (id == PARAM_OUTPUT_GAIN) gain = value;
        if (id == PARAM_LIMITER_GATE) limiter.SetGate(value);
    }
    // Forgets the history, as newly made; keeps the settings.
    void Reset() { limiter.Reset(); }

    // How many frames fit into a chunk that begins `ahead` frames from now.
    uint32_t Room(uint32_t ahead) const { return limiter.Room(ahead, channels); }
    // From `samples`, which are overwritten, to `out`: `count` interleaved frames, at most Room(0).
    // Runner: dsp/runs.h.
    template <typename Runner>
    void ProcessChunk(float* samples, uint32_t count, int16_t* out, Runner runner) {
        Amplify(samples, size_t{count} * channels, gain);
        limiter.ProcessChunkToShort(samples, count, channels, out, runner);
    }

private:
    FrameLimiter<FloatLimiting> limiter;
    float gain = 1.0F;  // linear
    uint32_t channels = kMaxChannels;
};
