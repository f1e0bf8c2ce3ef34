// Plays a stream through one instance. The stream may arrive in pieces of any length; the instance
// gets buffers of one size.
//
// Samples are interleaved, 16 bits; all counts are in frames. Processing allocates nothing and
// throws nothing. Thread: one at a time.
#pragma once
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "client/instance.h"
#include "client/settings.h"

struct StreamFormat {
    uint32_t rateHz;    // 32000 to 48000
    uint32_t channels;  // 1 or 2
    // Frames per call, at least 1. The playback gain measures the level once per buffer.
    uint32_t bufferFrames;
};

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
