// Meters one stream on a thread of its own, beside the one that plays it.
#pragma once
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "render/audio/loudness.h"
#include "render/audio/spectrum.h"
#include "render/background.h"

// What isn't metered is NaN or empty.
struct Measured {
    Loudness loudness;
    std::vector<float> tenths;  // LoudnessMeter::Tenths
    Spectrum spectrum;
};

// Make, feed and finish it on one thread.
class StreamMeter {
public:
    explicit StreamMeter(Metering whatToMeter);

    // The stream begins, or goes on at another rate or with other channels; all of it is measured
    // as one. Metering over time takes only one such run. firstFrame: where time and spectrum
    // begin.
    void StartRun(uint32_t channelCount, uint32_t rateHz, uint64_t firstFrame = 0);

    // Interleaved samples, whole frames; copied. Waits where the meters are far behind. A stream
    // has one kind.
    void Add(std::span<const float> samples);
    void Add(std::span<const int16_t> samples);

    // The end of the stream: waits for the meters. Meters that ran out of memory have measured
    // nothing.
    Measured Finish();

private:
    // Large enough that handing it over costs nothing.
    struct Run {
        uint32_t channels, rateHz;
    };
    struct Block {
        std::optional<Run> run;  // that begins with this block, not the first
        std::vector<float> floats;
        std::vector<int16_t> sixteenBits;
    };
    void HandOver();
    void MeterBlock(const Block& block);

    Metering metering;
    uint64_t samplesToSkip = 0;  // before the spectrum begins
    std::optional<LoudnessMeter> loudness;
    std::optional<SpectrumMeter> spectrum;

    bool failed = false;                          // the meters ran out of memory
    Block gathered;                               // to be handed over
    std::optional<Background<Block>> background;  // none where nothing is metered
};
