#include "render/audio/pcm_sink.h"

#include <algorithm>

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
