// A stream through one instance, cut into buffers of one size whatever pieces it arrives in.
//
// Processing allocates nothing and throws nothing. Samples are interleaved, 16 bits. One thread.
#pragma once
#include <cstddef>
#include <cstdint>
#include <vector>

#include "client/instance.h"
#include "client/settings.h"

struct StreamFormat {
    uint32_t rateHz;        // 32000 to 48000
    uint32_t channels;      // 1 or 2
    uint32_t bufferFrames;  // frames per call, 1 or more: the playback gain measures per buffer
};

class BlockStream {
public:
    // Creates and configures an instance, brings it to the settings and enables it. The record must
    // outlive it. Allocates.
    BlockStream(const audio_effect_library_t& library, const StreamFormat& streamFormat,
                const Settings& settings);

    // What the library refused, for "the library refuses to ...", null if nothing; Status() is what
    // it answered then. What a stream that was refused gives is silence.
    const char* Refused() const { return refused; }
    int32_t Status() const { return status; }

    // Takes as many frames as the present buffer still lacks, or `frames`, and returns how many.
    // When that fills the buffer it runs, and Buffer() is what came out.
    size_t Put(const int16_t* in, size_t frames);
    // Whether the last Put() ran a buffer.
    bool HasRun() const { return filled == 0; }
    const std::vector<int16_t>& Buffer() const { return output; }

    // A running stream: `frames` frames in, any number, and as many out, format.bufferFrames later
    // beside the delay of the chain. `out` may be `in`.
    void Process(const int16_t* in, int16_t* out, size_t frames);

    // From here on buffers of another size, at most the first one's. Only where a buffer begins;
    // the instance begins anew, too, with its settings. Allocates nothing.
    void Restart(uint32_t bufferFrames);

    ClientInstance instance;  // to command while it runs

private:
    void Start(const Settings& settings);
    size_t Fill(const int16_t* in, size_t frames);
    void RunIfFull();
    // Notes the first refusal; returns whether there is none.
    bool Took(int32_t answer, const char* what);

    StreamFormat format;
    std::vector<int16_t> input, output;
    size_t filled = 0;  // frames in `input`
    const char* refused = nullptr;
    int32_t status = kStatusOk;
};
