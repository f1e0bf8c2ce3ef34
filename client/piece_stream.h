// Plays a piece through one new instance and removes the chain's delay.
//
// The playback gain of a new instance rises from 0 over at least a hundred buffers, which would
// swallow the beginning of a piece. So the instance first processes silence, and that output is
// dropped. The piece then begins as it would after a pause in a running player.
//
// Samples are interleaved, 16 bits. Spans and vectors count samples, and `frames` counts frames of
// one sample per channel. Allocates. Thread: one at a time, not the audio thread.
#pragma once
#include <cstdint>
#include <span>
#include <vector>

#include "client/delay.h"
#include "client/settings.h"
#include "client/stream.h"

struct Alignment {
    bool keepsDelay = false;  // keeps the chain's delay in the output
    bool startsCold = false;  // processes no silence before the piece, as the framework does
};

class PieceStream {
public:
    // Creates the instance and, unless it starts cold, settles it. The record must outlive the
    // stream. If the library refuses, Refused() says what.
    PieceStream(const audio_effect_library_t& library, const Settings& settings,
                const StreamFormat& streamFormat, const Alignment& alignment);

    // The same as BlockStream's. A stream that was refused gives silence, or nothing if the memory
    // for a buffer was refused.
    const char* Refused() const { return stream.Refused(); }
    int32_t Status() const { return stream.Status(); }

    // Processes `in`, which must hold whole frames. Appends to `out` the frames that have passed
    // through the chain so far.
    void Process(std::span<const int16_t> in, std::vector<int16_t>* out);

    // Ends the piece: processes silence until the last frame has passed through, and appends the
    // rest to `out`. In total, as many frames have then been appended as were taken. If the delay
    // is kept, its frames come on top.
    void Finish(std::vector<int16_t>* out);

    // Returns the frames appended so far.
    uint64_t FramesOut() const { return samplesOut / format.channels; }
    // Returns the frames of silence that were processed and dropped before the first frame; 0 after
    // a cold start.
    uint64_t SettlingFrames() const { return settlingFrames; }

private:
    void Settle(uint32_t silentFrames);
    // Processes `in` and appends the output, at most `mostSamples` samples of each buffer.
    void Feed(std::span<const int16_t> in, uint64_t mostSamples, std::vector<int16_t>* out);
    void Append(uint64_t mostSamples, std::vector<int16_t>* out);

    StreamFormat format;
    bool keepDelay;
    uint64_t delaySamples;  // the whole delay, DelayFrames
    uint64_t skipSamples;   // samples that must still be dropped from the front
    bool buffered;          // true if the enhancer returns some buffers silent
    BlockBuffering buffering;
    BlockStream stream;
    uint64_t settlingFrames = 0;
    uint64_t samplesIn = 0, samplesOut = 0;
};
