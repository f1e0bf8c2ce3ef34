// Cross-fades two streams of interleaved 16-bit samples: a linear fade, in place, that may span
// any number of calls.
//
// Delay: none. Allocates: never. Thread: no lock of its own; the owner serialises all calls.
#pragma once
#include <cstdint>

#include "platform/export.h"

class ORVANE_API CrossFader {
public:
    // No fade running.
    CrossFader();

    // Starts a fade of `frames` frames. 0: the next frame is the old stream's, then the new one's.
    // A negative length never ends; don't.
    void BeginFader(int frames);

    // target: the stream fading in, receives the mix. source: the stream fading out. Both hold
    // `frames` frames of `channels` samples. Nothing happens when no fade is running, when the two
    // are the same memory, or without samples; what lies behind the end of a fade stays.
    void FadeStream(int16_t* target, const int16_t* source, int frames, int channels);

private:
    float position = 1.0F;  // weight of the target; 1 and above: no fade is running
    float step = 0.0F;      // per frame
};
