#include "render/audio/pcm_source.h"

PcmSource::PcmSource(AudioReader& audioReader, uint32_t chainRateHz, bool dither, bool measure)
    : reader(audioReader),
      resampler(reader.RateHz(), chainRateHz, reader.Channels()),
      dithers(dither && !(reader.IsSixteenBit() && resampler.IsIdle())),
      quantizer(dithers),
      meter(reader.Channels(), reader.RateHz(), measure) {}

bool PcmSource::Read(std::vector<int16_t>* pcm) {
    pcm->clear();
    if (ended) return false;
    resampled.clear();
    const std::span<const float> samples = reader.Read();
    if (samples.empty()) {
        ended = true;
        resampler.Finish(&resampled);
    } else {
        framesRead += samples.size() / reader.Channels();
        meter.Add(samples);
        resampler.Process(samples, &resampled);
    }
    quantizer.Process(resampled, pcm);
    return true;
}
