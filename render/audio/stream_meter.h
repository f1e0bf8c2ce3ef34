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
    // firstFrame: where time and spectrum begin.
    StreamMeter(uint32_t channelCount, uint32_t rateHz, Metering metering, uint64_t firstFrame = 0);

    // Interleaved samples, whole frames; copied. Waits where the meters are far behind. A stream
    // has one kind.
    void Add(std::span<const float> samples);
    void Add(std::span<const int16_t> samples);

    // The end of the stream: waits for the meters. Meters that ran out of memory have measured
    // nothing.
    Measured Finish();

private:
    // Large enough that handing it over costs nothing.
    struct Block {
        std::vector<float> floats;
        std::vector<int16_t> sixteenBits;
    };
    void HandOver();
    void MeterBlock(const Block& block);

    uint64_t samplesToSkip;  // before the spectrum begins
    LoudnessMeter loudness;
    std::optional<SpectrumMeter> spectrum;

    bool failed = false;                          // the meters ran out of memory
    Block gathered;                               // to be handed over
    std::optional<Background<Block>> background;  // none where nothing is metered
};
