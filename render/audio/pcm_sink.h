// Writes the chain's output: resampled to the output's rate, scaled and measured. Use an object on
// one thread.
#pragma once
#include <cstdint>
#include <span>
#include <vector>

#include "render/audio/audio_writer.h"
#include "render/audio/quantizer.h"
#include "render/audio/resampler.h"
#include "render/audio/stream_meter.h"

class PcmSink {
public:
    struct Rates {
        uint32_t chainHz, outputHz;
    };
    // `dither`: adds dither if the samples are resampled or scaled. `gain`: linear; applied before
    // the samples are rounded to 16 bits. With equal rates and gain 1, samples are written
    // unchanged. `streamMeter` measures what is written, from frame `firstFrame` on over time.
    // Writer and meter must outlive the sink.
    PcmSink(AudioWriter& audioWriter, const Rates& rates, uint32_t channelCount, bool dither,
            double gain, StreamMeter& streamMeter, uint64_t firstFrame = 0);

    // Takes whole interleaved frames at rates.chainHz. Throws Failure if the writer does.
    void Write(std::span<const int16_t> samples);
    // Ends the stream. Makes the output `frames` long (at rates.outputHz), because resampling may
    // give one frame more or less.
    void Finish(uint64_t frames);

    uint64_t Clipped() const { return quantizer.Clipped(); }

private:
    void Put(std::span<const int16_t> samples);

    AudioWriter& writer;
    size_t channels;
    bool isExact;   // samples are written unchanged
    float toFloat;  // converts a 16-bit sample to a float and applies the gain
    Resampler resampler;
    Quantizer quantizer;
    StreamMeter& meter;
    std::vector<float> floats, resampled;
    std::vector<int16_t> quantized;
    uint64_t samplesWritten = 0;
};
