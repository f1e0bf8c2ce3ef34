// A stream through one fresh instance, cut into buffers of one size whatever pieces it arrives in,
// with the chain's delay taken out.
#pragma once
#include <cstdint>
#include <span>
#include <vector>

#include "tools/delay.h"
#include "tools/effect_host.h"
#include "tools/settings.h"

struct ChainFormat {
    uint32_t rateHz;        // 32000 to 48000
    uint32_t channels;      // 1 or 2
    uint32_t bufferFrames;  // frames per call, 1 or more: the playback gain measures per buffer
};

class Chain {
public:
    // keepsDelay: gives the stream as it leaves the instance. The library must outlive the chain.
    Chain(const EffectLibrary& library, const Settings& settings, const ChainFormat& chainFormat,
          bool keepsDelay);

    // Takes interleaved samples, whole frames; appends to `out` what has come through.
    void Process(std::span<const int16_t> in, std::vector<int16_t>* out);

    // The end of the stream: feeds silence until everything is out. All that was appended is then
    // as long as all that was taken, with the delay kept longer by the delay.
    void Finish(std::vector<int16_t>* out);

    uint64_t FramesOut() const { return samplesOut / format.channels; }

private:
    void RunBuffer(std::vector<int16_t>* out, uint64_t mostSamples);

    ChainFormat format;
    bool keepDelay;
    uint64_t delaySamples;  // in all
    uint64_t skipSamples;   // still to be dropped from the front
    bool buffered;          // the enhancer returns some buffers silent
    BlockBuffering buffering;
    EffectInstance instance;
    std::vector<int16_t> inBuffer, outBuffer;
    size_t filled = 0;  // samples in inBuffer
    uint64_t samplesIn = 0, samplesOut = 0;
};

// A whole piece at once.
std::vector<int16_t> RunChain(const EffectLibrary& library, const Settings& settings,
                              const ChainFormat& format, std::span<const int16_t> in);
