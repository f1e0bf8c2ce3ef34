// Cross-fades two streams of interleaved 16-bit samples in place. The fade is linear and may span
// any number of calls.
//
// Delay: none. Allocates: never. Thread: no lock of its own; the owner serialises all calls.
#pragma once
#include <cstdint>

#include "platform/export.h"

class ORVANE_API CrossFader {
public:
    // In a new object no fade is running.
    CrossFader();

    // Starts a fade of `frames` frames. With 0, the next frame is still the old stream's and the
    // following ones are the new stream's. The length must not be negative: such a fade never ends.
    void BeginFader(int frames);

    // Mixes `source`, which fades out, into `target`, which fades in. Both have `frames` frames of
    // `channels` samples. Does nothing if no fade is running, if both are the same memory, or if
    // there are no samples. Frames after the end of the fade stay unchanged.
    void FadeStream(int16_t* target, const int16_t* source, int frames, int channels);

private:
    float position = 1.0F;  // weight of the target; 1 and above: no fade is running
    float step = 0.0F;      // per frame
};
