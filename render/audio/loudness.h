// Measures the loudness (ITU-R BS.1770, EBU R 128), the loudness range (EBU Tech 3342) and the true
// peak of a stream of one or two channels. Use an object on one thread.
#pragma once
#include <ebur128.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "dsp/lanes.h"

struct Ebur128Deleter {
    void operator()(ebur128_state* state) const { ebur128_destroy(&state); }
};
using Ebur128Handle = std::unique_ptr<ebur128_state, Ebur128Deleter>;

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

// The K-weighting of BS.1770: a shelf above 1682 Hz and a high-pass at 38 Hz, as one filter of
// fourth order. Both channels are filtered at once, as the lanes of a vector, in a fifth of
// libebur128's time. The mean squares differ from libebur128's by less than 1e-10 dB.
class KWeighting {
public:
    // `channelCount`: 1 or 2.
    KWeighting(uint32_t channelCount, uint32_t rateHz);

    // One number for each channel. A mono stream leaves the second one zero.
    using Pair = VectorOf<double, 2>::Type;

    // Filters whole interleaved frames of finite samples; full scale is 1.0. Adds the squares to
    // *sum one by one, so the sum's bits don't depend on how a stream is divided into calls.
    void AddSquares(std::span<const float> samples, Pair* sum);

    // Clears values that would become subnormal, and slow, in a long silence. Call it once every
    // tenth of a second.
    void ClearInaudible();

private:
    static constexpr size_t kOrder = 4;

    template <size_t channelCount>
    Pair Filter(std::span<const float> samples, Pair sum);

    size_t channels;
    // Coefficients of the transfer function; element k is that of the sample k frames earlier.
    std::array<double, kOrder + 1> feedForward{}, feedBack{};
    std::array<Pair, kOrder> history{};  // from the latest value on
};

struct Loudness {           // Values that were not measured are NaN.
    double integratedLufs;  // -infinity if the stream is silent or shorter than 0.4 s
    // The range of the loudness over windows of 3 s, taken every 1 s. Meters that take windows
    // every 0.1 s show up to 2 LU more. NaN if the stream is silent or shorter than 3 s.
    double rangeLu;
    // dB relative to full scale, over all channels; -infinity if the stream is silent
    double truePeakDb;
};

// The lowest rate that is measured. The shelf of the K-weighting, at 1682 Hz, must lie below half
// the rate.
constexpr uint32_t kLowestMeteredRateHz = 2 * 1682;

enum class Metering {
    kNothing,
    kLoudness,    // integrated loudness and range
    kEverything,  // also true peak
    kParts,       // also integrated loudness and true peak of each part of the stream
    kOverTime,    // also loudness over time and spectrum, for a picture
};

// The squares of each tenth of a second are summed once. Blocks and windows, which overlap, are
// means of these sums.
class LoudnessMeter {
public:
    // Measures nothing for Metering::kNothing, if rateHz is below kLowestMeteredRateHz, or if there
    // are more than two channels. The tenths of a second that Tenths() returns begin at frame
    // `firstFrame`.
    LoudnessMeter(uint32_t channelCount, uint32_t rateHz, Metering whatToMeter,
                  uint64_t firstFrame = 0);

    // Continues with a stream of another rate or number of channels. Earlier measurements still
    // count, except those of a gating block of 0.4 s that is not complete. Not allowed for
    // Metering::kOverTime.
    void Continue(uint32_t channelCount, uint32_t rateHz);

    // `samples`: whole interleaved frames; full scale is 1.0.
    void Add(std::span<const float> samples);
    // Ends a part of the stream, with Metering::kParts. The next one begins. Parts are measured on
    // their own, up to their last complete tenth of a second.
    void EndPart();
    // Returns integrated loudness and true peak of the parts that have ended; the range is NaN.
    const std::vector<Loudness>& Parts() const { return parts; }
    // Returns the measurements so far. Values that were not measured are NaN.
    Loudness Result() const;
    // Returns the K-weighted mean square, summed over the channels, of each complete tenth of a
    // second. The loudness of a tenth in LUFS is -0.691 + 10 log10 of this value. Empty unless the
    // metering is kOverTime.
    const std::vector<float>& Tenths() const { return tenths; }

private:
    // K-weighted squares since the last Take.
    struct RunningMean {
        KWeighting::Pair sum{};
        uint64_t frames = 0;

        // Returns the mean square, summed over the channels, and starts again.
        double Take();
    };
    void Start();
    uint64_t TenthEnds() const;
    void EndStep();

    Metering metering;
    uint32_t channels, rate;
    uint64_t first;                       // the frame at which the tenths begin
    std::optional<KWeighting> weighting;  // unset if nothing is measured
    std::optional<TruePeakMeter> truePeak;
    double earlierPeak = 0;  // true peak before the last Continue or EndPart, linear
    std::vector<Loudness> parts;
    std::vector<float> tenths;
    uint64_t frames = 0;
    RunningMean tenth, step;  // of the tenth and the step that are not complete
    // K-weighted mean squares since the last Continue. Steps take a tenth of a second. Blocks of
    // 0.4 s and windows of 3 s end with a step, and only those that reach -70 LUFS are kept.
    std::vector<double> steps, blocks, windows;
};
