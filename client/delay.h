// Computes how many frames the chain's output lags behind its input, from the settings and the size
// of the host's buffers. The sum is made of each stage's delay in table/stages.h.
//
// All sizes and delays are in frames; bufferFrames is at least 1. Thread: any; nothing allocates.
#pragma once
#include <cstdint>

#include "client/settings.h"

// Tells which buffers of a stream the enhancer returns as silence.
//
// The enhancer collects blocks of 770 frames and returns frames only in whole buffers. A call that
// finds less than a buffer of finished frames returns silence. That happens a few times at the
// start of a stream and then never again. The silent buffers need not follow each other: with
// buffers of 512 frames they are the first and the third.
class BlockBuffering {
public:
    // Every buffer has `frames` frames.
    explicit BlockBuffering(uint32_t frames) : bufferFrames(frames) {}
    // Counts the next buffer. Returns true if the enhancer returns frames for it, false if silence.
    bool Deliver();

private:
    uint32_t bufferFrames;
    uint32_t waiting = 0;   // collected frames that don't fill a block yet
    uint32_t finished = 0;  // frames of whole blocks that don't fill a buffer yet
};

// Returns the delays of the stages that are on, without the enhancer's silent buffers.
uint32_t StreamDelayFrames(const Settings& settings);

// Returns how many frames the enhancer's silent buffers hold in all; 0 while the enhancer is off.
//
// The formula is bufferFrames * ceil((770 - gcd) / bufferFrames), where gcd is the greatest common
// divisor of 770 and bufferFrames. Reason: the number of waiting frames takes every multiple of gcd
// below 770, so at most 770 - gcd frames wait.
uint32_t BufferingFrames(const Settings& settings, uint32_t bufferFrames);

// Returns the whole delay, which holds from the last silent buffer on: the sum of the two above.
uint32_t DelayFrames(const Settings& settings, uint32_t bufferFrames);
