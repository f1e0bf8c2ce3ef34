#include "render/audio/pcm_source.h"

#include <fmt/core.h>

PcmSource::PcmSource(SampleReader& sampleReader, uint32_t chainRateHz, bool dither,
                     StreamMeter& streamMeter)
    : reader(sampleReader),
      resampler(reader.RateHz(), chainRateHz, reader.Channels()),
      dithers(dither && !(reader.IsSixteenBit() && resampler.IsIdle())),
      quantizer(dithers),
      meter(streamMeter) {
    meter.StartRun(reader.Channels(), reader.RateHz());
}

bool PcmSource::Read(std::vector<int16_t>* pcm) {
    pcm->clear();
    if (ended) return false;
    if (reader.IsSixteenBit() && resampler.IsIdle()) return ReadSixteenBit(pcm);
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

std::vector<std::string> PcmSource::Damage() const {
    std::vector<std::string> damage = reader.Damage();
    if (NotNumbers() > 0)
        damage.push_back(
            fmt::format("{} of its samples {} taken for silence", NotNumbers(),
                        NotNumbers() == 1 ? "is no number and was" : "are no numbers and were"));
    return damage;
}

bool PcmSource::ReadSixteenBit(std::vector<int16_t>* pcm) {
    const std::span<const int16_t> samples = reader.ReadSixteenBit();
    framesRead += samples.size() / reader.Channels();
    meter.Add(samples);
    pcm->assign(samples.begin(), samples.end());
    ended = samples.empty();
    return !ended;
}
