// Plays a stream through one instance. BlockStream is a running stream: it may arrive in pieces of
// any length, and the instance gets buffers of one size. PieceStream plays one whole piece.
//
// Samples are interleaved, 16 bits. Thread: one at a time.
#pragma once
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "client/delay.h"
#include "client/instance.h"
#include "client/settings.h"

struct StreamFormat {
    uint32_t rateHz;    // 32000 to 48000
    uint32_t channels;  // 1 or 2
    // Frames per call, at least 1. The playback gain measures the level once per buffer.
    uint32_t bufferFrames;
};

// A running stream. All counts are in frames. Processing allocates nothing and throws nothing.
class BlockStream {
public:
    // Creates an instance, configures it, sends the settings, enables it and asks whether it is
    // ready. Allocates the instance and both buffers. The record must outlive the stream.
    BlockStream(const audio_effect_library_t& library, const StreamFormat& streamFormat,
                const Settings& settings);

    // Returns what the library refused, to complete "the library refuses to ...", or null. Status()
    // is the library's answer, or -12 if memory was refused. A stream that was refused gives
    // silence.
    const char* Refused() const { return refused; }
    int32_t Status() const { return status; }

    // Takes at most `frames` frames, up to the end of the present buffer, and returns how many it
    // took. If the buffer is full, the instance processes it, and Buffer() holds the output.
    size_t Put(const int16_t* in, size_t frames);
    // Returns true if the last Put() processed a buffer.
    bool HasRun() const { return filled == 0; }
    // Returns the last output, format.bufferFrames frames; silence before the first buffer. Returns
    // nothing if the memory for it was refused.
    std::span<const int16_t> Buffer() const {
        return {output.get(), output != nullptr ? Samples() : 0};
    }

    // Processes a running stream: takes any number of frames and writes the same number, delayed by
    // format.bufferFrames plus the chain's delay. `out` may be `in`.
    void Process(const int16_t* in, int16_t* out, size_t frames);

    // Changes the buffer size to `bufferFrames`, at most the size given at construction. Call it
    // only where a buffer begins (HasRun() is true). The instance is reset and keeps its settings.
    // Allocates nothing.
    void Restart(uint32_t bufferFrames);

    ClientInstance instance;  // for commands while the stream runs

private:
    void Start(const Settings& settings);
    size_t Fill(const int16_t* in, size_t frames);
    void RunIfFull();
    void Silence();
    size_t Samples() const { return size_t{format.bufferFrames} * format.channels; }
    // Stores the first refusal. Returns true if there is none.
    bool Took(int32_t answer, const char* what);

    StreamFormat format;
    std::unique_ptr<int16_t[]> input, output;  // null if memory was refused
    size_t filled = 0;                         // frames in `input`
    const char* refused = nullptr;
    int32_t status = kStatusOk;
};

// Returns how many frames of silence bring a new instance to rest, in whole buffers. The playback
// gain fades in over a hundred calls. With short buffers these end before the gain has settled. It
// rises with a time constant of 0.4 s, so three seconds are enough.
constexpr uint64_t FramesToSettle(uint32_t rateHz, uint32_t bufferFrames) {
    constexpr uint64_t kBuffers = 100, kSeconds = 3;
    const uint64_t buffers = (kSeconds * rateHz + bufferFrames - 1) / bufferFrames;
    return (buffers > kBuffers ? buffers : kBuffers) * bufferFrames;
}

struct Alignment {
    bool keepsDelay = false;  // keeps the chain's delay in the output
    bool startsCold = false;  // processes no silence before the piece, as the framework does
};

// Plays a piece through one new instance and removes the chain's delay.
//
// The playback gain of a new instance rises from 0 over at least a hundred buffers, which would
// swallow the beginning of a piece. So the instance first processes silence, and that output is
// dropped. The piece then begins as it would after a pause in a running player.
//
// Spans and vectors count samples, and `frames` counts frames of one sample per channel. Allocates,
// so it must not be used on the audio thread.
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
