#include "unit/chain.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

constexpr uint32_t kWaveBufferFrames = 2048;

template <typename Visit>
void Chain::ForEachStage(Visit visit) {
    visit(waveBuffer);
    visit(playbackGain);
    visit(equalizer);
    visit(enhancer);
    visit(limiters);
}

template <typename Action>
void Chain::ForEach(Action act) {
    ForEachStage([&act](auto& stage) { stage.ForEach(act); });
}

Chain::Chain(uint32_t rateHz, uint32_t channelCount)
    : samplingRate(rateHz), channels(channelCount) {
    waveBuffer.Make(channels, kWaveBufferFrames);
    playbackGain.Make();
    equalizer.Make();
    enhancer.Make(0U);
    limiters.Make();
    HandOn();
    for (const ParameterRule& rule : kParameterRules) {
        const int bands = rule.kind == ParameterKind::kBandValue ? kBandCount : 1;
        for (int band = 0; band < bands; ++band) Set(rule.id, rule.defaultValue, band);
    }
    Reset();
    ready = Complete();
}

void Chain::HandOn() {
    ForEach([this](auto& processor) {
        if constexpr (requires { processor.SetSamplingRate(samplingRate); })
            processor.SetSamplingRate(samplingRate);
        if constexpr (requires { processor.SetChannels(channels); })
            processor.SetChannels(channels);
    });
}

bool Chain::Complete() {
    bool complete = true;
    ForEachStage([&complete](const auto& stage) { complete = complete && stage.Filled(); });
    ForEach([&complete](const auto& processor) {
        if constexpr (requires { processor.GetPrepared(); })
            complete = complete && processor.GetPrepared();
    });
    return complete && waveBuffer->GetBufferSize() != 0;
}

void Chain::SetSamplingRate(uint32_t rateHz) {
    samplingRate = rateHz;
    HandOn();
    ready = ready && Complete();
    Reset();
}

void Chain::SetChannels(uint32_t count) {
    channels = count;
    HandOn();
    waveBuffer.Make(channels, kWaveBufferFrames);
    ready = ready && Complete();
    Reset();
}

void Chain::Reset() {
    ForEach([](auto& processor) { processor.Reset(); });
}

void Chain::Set(ParameterId id, float value, int band) {
    ForEach([=](auto& processor) {
        if constexpr (requires { processor.Set(id, value, band); }) processor.Set(id, value, band);
    });
}

bool Chain::Process(const int16_t* in, int16_t* out, uint32_t frames) {
    const size_t total = static_cast<size_t>(frames) * channels;
    // Make room before anything is pushed, so that a refusal loses nothing in the middle of the
    // chain.
    if (in != out) std::memmove(out, in, total * sizeof(int16_t));
    waveBuffer->Reset();
    if (!enhancer->Reserve(frames) || waveBuffer->Reserve(frames) == 0) {
        playbackGain->Process(in, out, frames);
        return false;
    }
    float* const samples = enhancer->Input(waveBuffer->GetCurrentBufferR32Ptr());
    Begin(in, out, samples, frames);
    const uint32_t produced = Finish(samples, out, frames);

    const size_t sounding = static_cast<size_t>(produced) * channels;
    if (const size_t silent = total - sounding; silent != 0) {
        std::memmove(out + silent, out, sounding * sizeof(int16_t));
        std::memset(out, 0, silent * sizeof(int16_t));
    }
    return true;
}

// Runs playback gain and equalizer, from `in` through `out` to `samples`. The playback gain's
// limiter is interleaved with the equalizer's sums of the previous chunk.
void Chain::Begin(const int16_t* in, int16_t* out, float* samples, uint32_t frames) {
    playbackGain->Begin(in, frames);
    Equalizer::Chunk sums;
    for (uint32_t left = frames, count = 0, before = 0; left + before > 0; before = count) {
        const size_t taken = size_t{before} * channels;
        count = std::min(left, playbackGain->Room());
        equalizer->Begin(sums, out, samples, before);
        playbackGain->ProcessChunk(in, out + taken, count, sums.Rest());
        equalizer->Finish(sums, samples);
        in += size_t{count} * channels;
        out += taken;
        samples += taken;
        left -= count;
    }
}

// Runs enhancer and output limiters, from the enhancer's input to `out`. Returns the number of
// frames that came out: all or none. The contour of a chunk is interleaved with the limiters' gains
// of the previous chunk.
uint32_t Chain::Finish(float* samples, int16_t* out, uint32_t frames) {
    samples = enhancer->ProcessBands(samples, frames);
    const uint32_t produced = samples != nullptr ? frames : 0;
    Enhancer::Chunk contour;
    for (uint32_t left = produced, count = 0, before = 0; left + before > 0; before = count) {
        const size_t taken = size_t{before} * channels;
        count = std::min(left, limiters->Room(before));
        enhancer->Begin(contour, samples + taken, count);
        limiters->ProcessChunk(samples, before, out, contour.Rest());
        enhancer->Finish(contour, samples + taken);
        out += taken;
        samples += taken;
        left -= count;
    }
    enhancer->Drop(produced);
    return produced;
}
