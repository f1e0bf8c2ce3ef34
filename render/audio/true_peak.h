// Measures the true peak of a stream. The result has the same bits as libebur128's, at a fraction
// of the cost. The reason is that only frames that may raise the peak are given to libebur128.
//
// The true peak is the largest magnitude of the samples and of the interpolated values between them
// (ITU-R BS.1770-4, annex 2). At rates below 96 kHz libebur128 oversamples by 4, and below 192 kHz
// by 2. It uses a sinc of 49 taps under a Hann window.
//
// A block of 64 frames is skipped if one of two bounds stays at or below the peak so far. The first
// bound is the largest sample times the largest sum of weight magnitudes of one interpolated value.
// The second bound is the largest interpolated value, computed here in vectors of floats. The
// interpolation has no recurrence. After a gap, libebur128 is exact again once it has received the
// frames that its taps reach.
//
// Use an object on one thread.
#pragma once
#include <ebur128.h>

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

struct Ebur128Deleter {
    void operator()(ebur128_state* state) const { ebur128_destroy(&state); }
};
using Ebur128Handle = std::unique_ptr<ebur128_state, Ebur128Deleter>;

class TruePeakMeter {
public:
    // At a rate that libebur128 refuses, the peak is NaN.
    TruePeakMeter(uint32_t channelCount, uint32_t rateHz);

    // `samples`: whole interleaved frames of finite samples; full scale is 1.0.
    void Add(std::span<const float> samples);

    // Returns the largest magnitude so far over all channels. Full scale is 1.0.
    double Peak() const { return peak; }

    // Weights of two samples at equal distances before and after an interpolated value. The value
    // half-way between two samples adds `half` times the sum of both. The two values at a quarter
    // add `even` times the sum, plus and minus `odd` times the difference.
    struct PairWeights {
        float half = 0, even = 0, odd = 0;
    };

private:
    void AddBlock(std::span<const float> block);
    bool MayExceedPeak(size_t blockSamples) const;
    float LargestBetween(size_t blockSamples) const;

    Ebur128Handle state;
    size_t channels;
    std::vector<PairWeights> pairs;  // from the outermost pair inwards
    // The largest sum of weight magnitudes of one interpolated value, at least 1.
    float mostRise = 1;
    // The interleaved samples that the taps reach before the block, followed by the block.
    std::vector<float> line;
    bool heardBefore = true;  // libebur128 has received the frames before the block
    double peak = 0;
};
