// Reads the input for the chain: resampled to the chain's rate, in 16 bits, and measured at the
// input's rate. Use an object on one thread.
#pragma once
#include <cstdint>
#include <vector>

#include "render/audio/audio_reader.h"
#include "render/audio/quantizer.h"
#include "render/audio/resampler.h"
#include "render/audio/stream_meter.h"

class PcmSource {
public:
    // `dither`: adds dither unless the input is 16-bit and not resampled. `streamMeter` measures
    // the input. Reader and meter must outlive the source.
    PcmSource(SampleReader& sampleReader, uint32_t chainRateHz, bool dither,
              StreamMeter& streamMeter);

    // Replaces the content of *pcm with the next interleaved samples, whole frames. Some calls give
    // none. Returns false after the last samples. Throws Failure if the reader does.
    bool Read(std::vector<int16_t>* pcm);

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
