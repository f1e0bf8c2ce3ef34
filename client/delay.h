// How far the chain's output lies behind its input, from the settings and the host's buffer size.
// table/stages.h has each stage's part.
#pragma once
#include <cstdint>

#include "client/settings.h"

// The enhancer collects blocks of 770 frames and returns frames only in whole buffers: a call that
// finds less than a buffer of finished frames returns silence. That happens a few times at the
// start of a stream, not always in a row (512 frames: first and third buffer), and then never
// again. This tells which buffers.
class BlockBuffering {
public:
    explicit BlockBuffering(uint32_t frames) : bufferFrames(frames) {}
    // For the next buffer: whether the enhancer returns frames, false if silence.
    bool Deliver();

private:
    uint32_t bufferFrames;
    uint32_t waiting = 0;   // frames short of a block
    uint32_t finished = 0;  // frames short of a buffer
};

// Frames of delay inside the stream, without the silent buffers.
uint32_t StreamDelayFrames(const Settings& settings);

// Frames of silent buffers over all time: bufferFrames * ceil((770 - gcd) / bufferFrames), gcd that
// of 770 and bufferFrames; the number of waiting frames runs through all multiples of it.
uint32_t BufferingFrames(const Settings& settings, uint32_t bufferFrames);

// The whole delay, from the last silent buffer on.
uint32_t DelayFrames(const Settings& settings, uint32_t bufferFrames);
