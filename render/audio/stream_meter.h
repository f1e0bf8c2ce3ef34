// Measures one stream on a separate thread while the calling thread processes it.
#pragma once
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "render/audio/loudness.h"
#include "render/audio/spectrum.h"
#include "render/background.h"

// The results. What was not measured is NaN or empty.
struct Measured {
    Loudness loudness;
    std::vector<float> tenths;  // as LoudnessMeter::Tenths returns them
    Spectrum spectrum;
    std::vector<Loudness> parts;  // as LoudnessMeter::Parts returns them
};

// All calls must come from one thread.
class StreamMeter {
public:
    explicit StreamMeter(Metering whatToMeter);

    // Begins the stream, or continues it at another rate or with other channels. All runs together
    // are measured as one stream. Metering::kOverTime allows only one run. Loudness over time and
    // the spectrum begin at frame `firstFrame` of the first run.
    void StartRun(uint32_t channelCount, uint32_t rateHz, uint64_t firstFrame = 0);

    // Copies whole interleaved frames; full scale is 1.0 for floats and 32768 for 16 bits. Waits if
    // the meters are more than 8 blocks behind. One stream uses only one of the two types.
    void Add(std::span<const float> samples);
    void Add(std::span<const int16_t> samples);

    // Ends a part of the stream, with Metering::kParts.
    void EndPart();

    // Ends the stream, waits for the meters and returns their results. If memory ran out on the
    // way, nothing was measured.
    Measured Finish();

private:
    struct Run {
        uint32_t channels, rateHz;
    };
    struct Block {
        std::optional<Run> run;  // set if a run other than the first begins with this block
        std::vector<float> floats;
        std::vector<int16_t> sixteenBits;
        bool endsPart = false;
    };
    void HandOver();
    void MeterBlock(const Block& block);

    Metering metering;
    uint64_t samplesToSkip = 0;  // samples before the frame at which the spectrum begins
    std::optional<LoudnessMeter> loudness;
    std::optional<SpectrumMeter> spectrum;
    std::vector<float> converted;  // a block of 16-bit samples as floats

    bool failed = false;                          // memory for the meters ran out
    Block gathered;                               // samples that the thread has not received yet
    std::optional<Background<Block>> background;  // unset if nothing is measured
};
