// A stream through one fresh instance, with the chain's delay taken out.
//
// Throws Failure when the library says no.
#pragma once
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <vector>

#include "client/delay.h"
#include "client/settings.h"
#include "client/stream.h"
#include "render/effect_library.h"

class AlignedStream {
public:
    // keepsDelay: gives the stream as it leaves the instance. The library must outlive the stream.
    AlignedStream(const EffectLibrary& effectLibrary, const Settings& settings,
                  const StreamFormat& streamFormat, bool keepsDelay);
    ~AlignedStream();
    AlignedStream(const AlignedStream&) = delete;
    AlignedStream& operator=(const AlignedStream&) = delete;

    // Takes interleaved samples, whole frames; appends to `out` what has come through.
    void Process(std::span<const int16_t> in, std::vector<int16_t>* out);

    // The end of the stream: feeds silence until everything is out. All that was appended is then
    // as long as all that was taken, with the delay kept longer by the delay.
    void Finish(std::vector<int16_t>* out);

    uint64_t FramesOut() const { return samplesOut / format.channels; }

private:
    // Feeds `in` and appends what comes out, `mostSamples` of a buffer at most.
    void Feed(std::span<const int16_t> in, uint64_t mostSamples, std::vector<int16_t>* out);
    void Append(uint64_t mostSamples, std::vector<int16_t>* out);

    const EffectLibrary& library;
    StreamFormat format;
    bool keepDelay;
    uint64_t delaySamples;  // in all
    uint64_t skipSamples;   // still to be dropped from the front
    bool buffered;          // the enhancer returns some buffers silent
    BlockBuffering buffering;
    std::unique_ptr<BlockStream> stream;
    uint64_t samplesIn = 0, samplesOut = 0;
};

// Plays whole pieces, each through an instance of its own. The library must outlive it.
std::function<std::vector<int16_t>(const std::vector<int16_t>&)> AlignedPlayer(
    const EffectLibrary& library, const Settings& settings, const StreamFormat& format);
