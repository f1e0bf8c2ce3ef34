// What the chain gives, back at the rate that the output has, measured on the way.
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
    // dither: if it has to resample or to change the level. gain: linear, of everything that is
    // written; applied before the samples are rounded to 16 bits. With 1 nothing is changed.
    // meter: measures what is written, as a run that begins at
    // firstFrame. Writer and meter must outlive the sink.
    PcmSink(AudioWriter& audioWriter, const Rates& rates, uint32_t channelCount, bool dither,
            double gain, StreamMeter& streamMeter, uint64_t firstFrame = 0);

    // Interleaved samples, whole frames.
    void Write(std::span<const int16_t> samples);
    // The end of the stream: makes the output `frames` long, where resampling misses that by one.
    void Finish(uint64_t frames);

    uint64_t Clipped() const { return quantizer.Clipped(); }

private:
    void Put(std::span<const int16_t> samples);

    AudioWriter& writer;
    size_t channels;
    bool isExact;   // samples are written as they come
    float toFloat;  // from a 16-bit sample
    Resampler resampler;
    Quantizer quantizer;
    StreamMeter& meter;
    std::vector<float> floats, resampled;
    std::vector<int16_t> quantized;
    uint64_t samplesWritten = 0;
};
