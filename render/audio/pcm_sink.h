// What the chain gives, back at the rate that the output has, measured on the way.
#pragma once
#include <cstdint>
#include <span>
#include <vector>

#include "render/audio/audio_writer.h"
#include "render/audio/loudness.h"
#include "render/audio/quantizer.h"
#include "render/audio/resampler.h"

class PcmSink {
public:
    struct Rates {
        uint32_t chainHz, outputHz;
    };
    // dither: if it has to resample. The writer must outlive the sink.
    PcmSink(AudioWriter& audioWriter, const Rates& rates, uint32_t channelCount, bool dither,
            bool measure);

    // Interleaved samples, whole frames.
    void Write(std::span<const int16_t> samples);
    // The end of the stream: makes the output `frames` long, where resampling misses that by one.
    void Finish(uint64_t frames);

    uint64_t Clipped() const { return quantizer.Clipped(); }
    Loudness Measured() const { return meter.Result(); }

private:
    void Put(std::span<const int16_t> samples);

    AudioWriter& writer;
    size_t channels;
    Resampler resampler;
    Quantizer quantizer;
    LoudnessMeter meter;
    std::vector<float> floats, resampled;
    std::vector<int16_t> quantized;
    uint64_t samplesWritten = 0;
};
