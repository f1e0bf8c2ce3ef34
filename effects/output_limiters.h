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
    // Sets the number of interleaved channels, 1 or 2. It must stay the same between two resets.
    void SetChannels(uint32_t count) { channels = count; }
    // Sets one parameter of the table in the table's units. Ignores parameters of other processors.
    void Set(ParameterId id, float value, int /*band*/) {
        if (id == PARAM_OUTPUT_GAIN) gain = value;
        if (id == PARAM_LIMITER_GATE) limiter.SetGate(value);
    }
    // Clears the history, as in a new object; keeps the settings.
    void Reset() { limiter.Reset(); }

    // Returns how many frames fit into a chunk that begins `ahead` frames from now.
    uint32_t Room(uint32_t ahead) const { return limiter.Room(ahead, channels); }
    // Processes `count` interleaved frames, at most Room(0), from `samples` to `out`. Overwrites
    // `samples`. `runner` is explained in dsp/runs.h.
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
