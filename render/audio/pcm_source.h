// The input as the chain takes it: resampled if need be, in 16 bits, measured on the way.
#pragma once
#include <cstdint>
#include <vector>

#include "render/audio/audio_reader.h"
#include "render/audio/quantizer.h"
#include "render/audio/resampler.h"
#include "render/audio/stream_meter.h"

class PcmSource {
public:
    // dither: for what doesn't fit 16 bits as it is. streamMeter: measures the input, as a run.
    // Reader and meter must outlive the source.
    PcmSource(SampleReader& sampleReader, uint32_t chainRateHz, bool dither,
              StreamMeter& streamMeter);

    // Replaces *pcm by the next interleaved samples, now and then none; false after the last.
    bool Read(std::vector<int16_t>* pcm);

    bool Dithers() const { return dithers; }
    uint64_t FramesRead() const { return framesRead; }  // at the file's rate
    uint64_t Clipped() const { return quantizer.Clipped(); }
    // Samples taken for silence: of the file, and those that became none in resampling.
    uint64_t NotNumbers() const { return reader.NotNumbers() + quantizer.NotNumbers(); }
    // Call this after the last block: what the reader says, and samples that are no numbers.
    std::vector<std::string> Damage() const;

private:
    bool ReadSixteenBit(std::vector<int16_t>* pcm);

    SampleReader& reader;
    Resampler resampler;
    bool dithers;
    Quantizer quantizer;
    StreamMeter& meter;
    std::vector<float> resampled;
    uint64_t framesRead = 0;
    bool ended = false;
};
