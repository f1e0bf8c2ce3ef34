// The true peak of a stream, to the digit what libebur128 gives for it in one call, at a fraction
// of the cost: only what may raise the peak is given to the library.
//
// The library reads between the samples (ITU-R BS.1770-4, annex 2): four values to a frame below
// 96 kHz, two below 192 kHz, by a sinc of 49 taps under a Hann window. A block of frames is passed
// over if its largest sample, times the largest sum of magnitudes of one value's weights, doesn't
// exceed the peak so far; or if the values between, taken here in single precision and many at a
// time, stay below it. The interpolation has no recurrence: after a gap the library is right again
// once it has heard the frames that its taps reach.
#pragma once
#include <cstdint>
#include <span>
#include <vector>

#include "render/audio/ebur128_handle.h"

class TruePeakMeter {
public:
    // A rate that libebur128 doesn't take gives a peak of NaN.
    TruePeakMeter(uint32_t channelCount, uint32_t rateHz);

    // Interleaved samples, whole frames, full scale 1.0; finite.
    void Add(std::span<const float> samples);

    // The largest so far, of all channels; samples themselves count.
    double Peak() const { return peak; }

    // Of two samples that lie as far before a value between as behind it: by the value half-way,
    // their sum; by the two at a quarter, even times their sum plus and minus odd times their
    // difference.
    struct PairWeights {
        float half = 0, even = 0, odd = 0;
    };

private:
    void AddBlock(std::span<const float> block);
    bool MayExceedPeak(size_t blockSamples) const;
    float LargestBetween(size_t blockSamples) const;

    Ebur128Handle state;
    size_t channels;
    std::vector<PairWeights> pairs;  // from the outermost inwards
    float mostRise = 1;              // of a value between over the samples that it is read from
    std::vector<float> line;         // the frames that the taps reach before the block, the block
    bool heardBefore = true;         // the library knows the frames before the block
    double peak = 0;
};
