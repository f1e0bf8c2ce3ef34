// The two ends of the chain, which processes 16-bit samples. PcmSource reads the input for it:
// resampled to the chain's rate, and measured at the input's rate. PcmSink writes the chain's
// output: resampled to the output's rate, scaled and measured. Use an object on one thread.
#pragma once
#include <cstdint>
#include <span>
#include <vector>

#include "render/audio/audio_reader.h"
#include "render/audio/audio_writer.h"
#include "render/audio/conversion.h"
#include "render/audio/stream_meter.h"

class PcmSource {
public:
    // `dither`: adds dither unless the input is 16-bit and not resampled. `streamMeter` measures
    // the input. Reader and meter must outlive the source.
    PcmSource(SampleReader& sampleReader, uint32_t chainRateHz, bool dither,
              StreamMeter& streamMeter);

    // Sets *pcm to the next interleaved samples, whole frames. They are valid until the next call.
    // Some calls give none. Returns false after the last samples. Throws Failure if the reader
    // does.
    bool Read(std::span<const int16_t>* pcm);

    bool Dithers() const { return dithers; }
    uint64_t FramesRead() const { return framesRead; }  // in frames of the input
    uint64_t Clipped() const { return quantizer.Clipped(); }
    // Returns how many samples were replaced by 0: NaN or infinite in the file, or after
    // resampling.
    uint64_t NotNumbers() const { return reader.NotNumbers() + quantizer.NotNumbers(); }
    // Returns the damage that the reader found, and a phrase that counts samples that are not
    // numbers. Call it after the last block.
    std::vector<std::string> Damage() const;

private:
    bool ReadSixteenBit(std::span<const int16_t>* pcm);

    SampleReader& reader;
    Resampler resampler;
    bool dithers;
    Quantizer quantizer;
    StreamMeter& meter;
    std::vector<float> resampled;
    std::vector<int16_t> quantized;
    uint64_t framesRead = 0;
    bool ended = false;
};

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
