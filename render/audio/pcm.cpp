#include "render/audio/pcm.h"

#include <fmt/core.h>

#include <algorithm>

PcmSource::PcmSource(SampleReader& sampleReader, uint32_t chainRateHz, bool dither,
                     StreamMeter& streamMeter)
    : reader(sampleReader),
      resampler(reader.RateHz(), chainRateHz, reader.Channels()),
      dithers(dither && !(reader.IsSixteenBit() && resampler.IsIdle())),
      quantizer(dithers),
      meter(streamMeter) {
    meter.StartRun(reader.Channels(), reader.RateHz());
}

bool PcmSource::Read(std::span<const int16_t>* pcm) {
    *pcm = {};
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
    quantized.clear();
    quantizer.Process(resampled, &quantized);
    *pcm = quantized;
    return true;
}

std::vector<std::string> PcmSource::Damage() const {
    std::vector<std::string> damage = reader.Damage();
    if (NotNumbers() > 0)
        damage.push_back(fmt::format("{} of its samples {}", NotNumbers(),
                                     NotNumbers() == 1 ? "is not a number and counts as silence"
                                                       : "are not numbers and count as silence"));
    return damage;
}

bool PcmSource::ReadSixteenBit(std::span<const int16_t>* pcm) {
    *pcm = reader.ReadSixteenBit();
    framesRead += pcm->size() / reader.Channels();
    meter.Add(*pcm);
    ended = pcm->empty();
    return !ended;
}

PcmSink::PcmSink(AudioWriter& audioWriter, const Rates& rates, uint32_t channelCount, bool dither,
                 double gain, StreamMeter& streamMeter, uint64_t firstFrame)
    : writer(audioWriter),
      channels(channelCount),
      isExact(rates.chainHz == rates.outputHz && gain == 1),
      toFloat(static_cast<float>(gain / 32768)),
      resampler(rates.chainHz, rates.outputHz, channelCount),
      quantizer(dither),
      meter(streamMeter) {
    meter.StartRun(channelCount, rates.outputHz, firstFrame);
}

void PcmSink::Put(std::span<const int16_t> samples) {
    writer.Write(samples);
    meter.Add(samples);
    samplesWritten += samples.size();
}

void PcmSink::Write(std::span<const int16_t> samples) {
    if (isExact) {
        Put(samples);
        return;
    }
    floats.assign(samples.begin(), samples.end());
    for (float& sample : floats) sample *= toFloat;
    resampled.clear();
    resampler.Process(floats, &resampled);
    quantized.clear();
    quantizer.Process(resampled, &quantized);
    Put(quantized);
}

void PcmSink::Finish(uint64_t frames) {
    if (resampler.IsIdle()) return;
    resampled.clear();
    resampler.Finish(&resampled);
    quantized.clear();
    quantizer.Process(resampled, &quantized);
    const uint64_t wanted = frames * channels;
    quantized.resize(wanted - std::min(wanted, samplesWritten));
    Put(quantized);
}
