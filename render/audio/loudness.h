// Measures the loudness (ITU-R BS.1770, EBU R 128), the loudness range (EBU Tech 3342) and the true
// peak of a stream, with libebur128.
#pragma once
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "render/audio/true_peak.h"

struct Loudness {           // Values that were not measured are NaN.
    double integratedLufs;  // -infinity if the stream is silent or shorter than 0.4 s
    // The range of the loudness over windows of 3 s, taken every 1 s. Meters that take windows
    // every 0.1 s show up to 2 LU more. NaN if the stream is silent or shorter than 3 s.
    double rangeLu;
    // dB relative to full scale, over all channels; -infinity if the stream is silent
    double truePeakDb;
};

// The lowest rate that is measured. The shelf of the K-weighting, at 1682 Hz, must lie below half
// the rate. The library accepts rates from 16 Hz up, but at the lowest of them it writes beyond its
// memory.
constexpr uint32_t kLowestMeteredRateHz = 2 * 1682;

enum class Metering {
    kNothing,
    kLoudness,    // integrated loudness and range
    kEverything,  // also true peak
    kOverTime,    // also loudness over time and spectrum, for a picture
};

class LoudnessMeter {
public:
    // Measures nothing for Metering::kNothing, or if rateHz is below kLowestMeteredRateHz. The
    // tenths of a second that Tenths() returns begin at frame `firstFrame`.
    LoudnessMeter(uint32_t channelCount, uint32_t rateHz, Metering metering,
                  uint64_t firstFrame = 0);

    // Continues with a stream of another rate or number of channels. Earlier measurements still
    // count, except those of a gating block of 0.4 s that is not complete. Not allowed for
    // Metering::kOverTime.
    void Continue(uint32_t channelCount, uint32_t rateHz);

    // `samples`: whole interleaved frames; full scale is 1.0.
    void Add(std::span<const float> samples);
    // Returns the measurements so far. Values that were not measured are NaN.
    Loudness Result() const;
    // Returns the K-weighted mean square, summed over the channels, of each complete tenth of a
    // second. The loudness of a tenth in LUFS is -0.691 + 10 log10 of this value. Empty unless the
    // metering is kOverTime.
    const std::vector<float>& Tenths() const { return tenths; }

private:
    uint64_t TenthEnds() const;

    Ebur128Handle state;
    uint32_t channels, rate;
    bool overTime;
    uint64_t first;
    std::optional<TruePeakMeter> truePeak;
    double earlierPeak = 0;  // true peak before the last Continue, linear
    std::vector<float> tenths;
    uint64_t frames = 0;
};
