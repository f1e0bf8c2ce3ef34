// A piece through one fresh instance, settled beforehand, with the chain's delay taken out.
//
// The playback gain of a fresh instance rises from 0 for a hundred buffers and more, which would
// swallow the beginning of a piece. So the instance first hears silence, and what that gives is
// dropped: the piece then begins as it would after a pause in a running player.
//
// Samples are interleaved, 16 bits. One thread.
#pragma once
#include <cstdint>
#include <span>
#include <vector>

#include "client/delay.h"
#include "client/settings.h"
#include "client/stream.h"

struct Alignment {
    bool keepsDelay = false;  // gives the stream as it leaves the instance
    bool startsCold = false;  // doesn't settle: gives the framework's start
};

class PieceStream {
public:
    // The record must outlive the stream.
    PieceStream(const audio_effect_library_t& library, const Settings& settings,
                const StreamFormat& streamFormat, const Alignment& alignment);

    // BlockStream's. What a stream that was refused gives is silence.
    const char* Refused() const { return stream.Refused(); }
    int32_t Status() const { return stream.Status(); }

    // Takes whole frames; appends to `out` what has come through.
    void Process(std::span<const int16_t> in, std::vector<int16_t>* out);

    // The end of the piece: feeds silence until everything is out. All that was appended is then as
    // long as all that was taken, with the delay kept longer by the delay.
    void Finish(std::vector<int16_t>* out);

    uint64_t FramesOut() const { return samplesOut / format.channels; }
    // Of the silence that was heard and dropped before the first frame, 0 after a cold start.
    uint64_t SettlingFrames() const { return settlingFrames; }

private:
    void Settle(uint32_t silentFrames);
    // Feeds `in` and appends what comes out, `mostSamples` of a buffer at most.
    void Feed(std::span<const int16_t> in, uint64_t mostSamples, std::vector<int16_t>* out);
    void Append(uint64_t mostSamples, std::vector<int16_t>* out);

    StreamFormat format;
    bool keepDelay;
    uint64_t delaySamples;  // in all
    uint64_t skipSamples;   // still to be dropped from the front
    bool buffered;          // the enhancer returns some buffers silent
    BlockBuffering buffering;
    BlockStream stream;
    uint64_t settlingFrames = 0;
    uint64_t samplesIn = 0, samplesOut = 0;
};
