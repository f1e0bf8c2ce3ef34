#include "render/audio/stream_meter.h"

#include <algorithm>
#include <cmath>
#include <new>

#include "dsp/lanes.h"

namespace {

constexpr size_t kBlockSamples = 65536;  // large enough that handing a block over costs little
constexpr size_t kMostBlocks = 8;

// Replaces the content of *out with the samples as floats; full scale is 1.0. The results are
// exact.
void ToFloats(std::span<const int16_t> samples, std::vector<float>* out) {
    constexpr float kFromInt16 = 1.0F / 32768;
    out->resize(samples.size());
    size_t i = 0;
    if constexpr (kLanes > 1)
        for (; i + 2 * kLanes <= samples.size(); i += 2 * kLanes) {
            IntLanes first, second;
            LoadShorts(first, second, &samples[i]);
            Store(&(*out)[i], ConvertLanes<Lanes>(first) * kFromInt16);
            Store(&(*out)[i + kLanes], ConvertLanes<Lanes>(second) * kFromInt16);
        }
    for (; i < samples.size(); ++i) (*out)[i] = static_cast<float>(samples[i]) * kFromInt16;
}

}  // namespace

StreamMeter::StreamMeter(Metering whatToMeter) : metering(whatToMeter) {
    if (metering == Metering::kNothing) return;
    background.emplace(kMostBlocks, [this](const Block& block) {
        try {
            if (!failed) MeterBlock(block);
        } catch (const std::bad_alloc&) {
            failed = true;  // the output is complete without measurements
        }
    });
}

void StreamMeter::StartRun(uint32_t channelCount, uint32_t rateHz, uint64_t firstFrame) {
    if (!background) return;
    if (!loudness) {  // Made on this thread, because FFTW must not plan on two threads at once.
        samplesToSkip = firstFrame * channelCount;
        loudness.emplace(channelCount, rateHz, metering, firstFrame);
        if (metering == Metering::kOverTime) spectrum.emplace(channelCount, rateHz);
        return;
    }
    if (!gathered.floats.empty() || !gathered.sixteenBits.empty()) HandOver();
    gathered.run = {channelCount, rateHz};
}

void StreamMeter::Add(std::span<const float> samples) {
    if (!background) return;
    gathered.floats.reserve(kBlockSamples + samples.size());
    gathered.floats.insert(gathered.floats.end(), samples.begin(), samples.end());
    if (gathered.floats.size() >= kBlockSamples) HandOver();
}

void StreamMeter::Add(std::span<const int16_t> samples) {
    if (!background) return;
    gathered.sixteenBits.reserve(kBlockSamples + samples.size());
    gathered.sixteenBits.insert(gathered.sixteenBits.end(), samples.begin(), samples.end());
    if (gathered.sixteenBits.size() >= kBlockSamples) HandOver();
}

void StreamMeter::EndPart() {
    if (!background) return;
    gathered.endsPart = true;
    HandOver();
}

void StreamMeter::HandOver() {
    gathered = background->Put(std::move(gathered));
    gathered.run.reset();
    gathered.floats.clear();
    gathered.sixteenBits.clear();
    gathered.endsPart = false;
}

Measured StreamMeter::Finish() {
    if (background) {
        HandOver();
        background->Finish();
    }
    if (failed || !loudness)
        return {.loudness = {NAN, NAN, NAN}, .tenths = {}, .spectrum = {}, .parts = {}};
    return {loudness->Result(), loudness->Tenths(), spectrum ? spectrum->Finish() : Spectrum{},
            loudness->Parts()};
}

void StreamMeter::MeterBlock(const Block& block) {
    if (block.run) loudness->Continue(block.run->channels, block.run->rateHz);
    if (!loudness) return;
    if (!block.sixteenBits.empty()) ToFloats(block.sixteenBits, &converted);
    const std::span<const float> samples(block.sixteenBits.empty() ? block.floats : converted);
    loudness->Add(samples);
    if (block.endsPart) loudness->EndPart();
    if (!spectrum) return;
    const size_t skipped = std::min<uint64_t>(samplesToSkip, samples.size());
    samplesToSkip -= skipped;
    spectrum->Add(samples.subspan(skipped));
}
