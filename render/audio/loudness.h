// Loudness and true peak of a stream (ITU-R BS.1770, EBU R 128), through libebur128.
#pragma once
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "render/audio/ebur128_handle.h"
#include "render/audio/true_peak.h"

struct Loudness {           // NaN: not measured
    double integratedLufs;  // -infinity if silent or shorter than 0.4 s
    // EBU Tech 3342: of the loudness over 3 s, here every 1 s; other meters step by 0.1 s and tell
    // up to 2 LU more. NaN if silent or shorter than 3 s.
    double rangeLu;
    double truePeakDb;  // dB over full scale, of the louder channel; -infinity if silent
};

// The weighting's shelf, at 1682 Hz, has to lie below half the rate. libebur128 takes rates from
// 16 Hz on and at the lowest writes beyond its memory.
constexpr uint32_t kLowestMeteredRateHz = 2 * 1682;

enum class Metering {
    kNothing,
    kLoudness,    // and range
    kEverything,  // and true peak
    kOverTime,    // and, for a picture, loudness over time and spectrum
};

class LoudnessMeter {
public:
    // Nothing is measured at a rate that the meter doesn't take. firstFrame: where time begins.
    LoudnessMeter(uint32_t channelCount, uint32_t rateHz, Metering metering,
                  uint64_t firstFrame = 0);

    // Goes on with a stream of another kind. What was measured so far counts on; of a block of
    // 0.4 s that has begun, nothing does. Not for metering over time.
    void Continue(uint32_t channelCount, uint32_t rateHz);

    // Interleaved samples, whole frames.
    void Add(std::span<const float> samples);
    // NaN where nothing was measured.
    Loudness Result() const;
    // The weighted mean square of every tenth of a second that is whole, summed over the channels;
    // -0.691 + 10 log10 of it is its loudness. Empty unless metered over time.
    const std::vector<float>& Tenths() const { return tenths; }

private:
    uint64_t TenthEnds() const;

    Ebur128Handle state;
    uint32_t channels, rate;
    bool overTime;
    uint64_t first;
    std::optional<TruePeakMeter> truePeak;
    double earlierPeak = 0;  // of the streams before this one
    std::vector<float> tenths;
    uint64_t frames = 0;
};
