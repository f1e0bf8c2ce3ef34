#include "unit/chain.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "dsp/lanes.h"
#include "dsp/runs.h"
#include "dsp/softfloat/samples.h"
#include "effects/limiter_runs.h"

namespace {

constexpr uint32_t kWaveBufferFrames = 2048;

// What every setting of the chain is on a new instance.
template <typename Apply>
void ForEachDefault(Apply apply) {
    for (const ParameterRule& rule : kParameterRules) {
        const bool perBand = rule.kind == ParameterKind::kBandValue;
        const int bands = perBand ? static_cast<int>(FIREqualizer_R32R32::kBands) : 1;
        for (int band = 0; band < bands; ++band) apply(rule.id, rule.defaultValue, band);
    }
}

void Amplify(float* samples, size_t count, float gain) {
    if constexpr (kSoftFloat) return SoftAmplified(samples, count, gain);
    ForLanes<float>(count,
                    [=]<typename V>(size_t i) { Store(samples + i, Load<V>(samples + i) * gain); });
}

}  // namespace

template <typename Visit>
void Chain::ForEachStage(Visit visit) {
    visit(waveBuffer);
    visit(playbackGain);
    visit(equalizer);
    visit(enhancer);
    visit(limiter);
}

template <typename Action>
void Chain::ForEach(Action act) {
    ForEachStage([&act](auto& stage) { stage.ForEach(act); });
}

Chain::Chain(uint32_t rateHz, uint32_t channelCount)
    : samplingRate(rateHz), channels(channelCount) {
    waveBuffer.Make(channels, kWaveBufferFrames);
    playbackGain.Make();
    limiter.Make();
    equalizer.Make();
    enhancer.Make(0U);
    HandOnSamplingRate();
    HandOnChannels();
    ForEachDefault([this](ParameterId id, float value, int band) { Set(id, value, band); });
    Reset();
    ready = Complete();
}

void Chain::HandOnSamplingRate() {
    ForEach([this](auto& processor) {
        if constexpr (requires { processor.SetSamplingRate(samplingRate); })
            processor.SetSamplingRate(samplingRate);
    });
}

void Chain::HandOnChannels() {
    ForEach([this](auto& processor) {
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
    HandOnSamplingRate();
    ready = ready && Complete();
    Reset();
}

void Chain::SetChannels(uint32_t count) {
    channels = count;
    HandOnChannels();
    waveBuffer.Make(channels, kWaveBufferFrames);
    ready = ready && Complete();
    Reset();
}

void Chain::Reset() {
    ForEach([](auto& processor) { processor.Reset(); });
}

void Chain::Set(ParameterId id, float value, int band) {
    const auto enable = [value](auto& processor) { processor.SetEnable(value != 0); };
    switch (id) {
        case PARAM_PLAYBACKGAIN_ENABLE:
            playbackGain.ForEach(enable);
            break;
        case PARAM_PLAYBACKGAIN_RATIO:
            playbackGain.ForEach([value](auto& gain) { gain.SetRatio(value); });
            break;
        case PARAM_PLAYBACKGAIN_VOLUME:
            playbackGain.ForEach([value](auto& gain) { gain.SetVolume(value); });
            break;
        case PARAM_PLAYBACKGAIN_MAXGAIN:
            playbackGain.ForEach([value](auto& gain) { gain.SetMaxGainFactor(value); });
            break;
        case PARAM_EQUALIZER_ENABLE:
            equalizer.ForEach(enable);
            break;
        case PARAM_EQUALIZER_BANDLEVEL:
            equalizer.ForEach([&](auto& bands) { bands.SetBandLevel(band, value); });
            break;
        case PARAM_ENHANCER_ENABLE:
            enhancer.ForEach(enable);
            break;
        case PARAM_ENHANCER_PROCESS:
            enhancer.ForEach([value](auto& sound) { sound.SetProcess(value); });
            break;
        case PARAM_ENHANCER_LOCONTOUR:
            enhancer.ForEach([value](auto& sound) { sound.SetLoContour(value); });
            break;
        case PARAM_OUTPUT_GAIN:
            outputGain = value;
            break;
        case PARAM_LIMITER_GATE:
            limiter.ForEach([value](auto& frames) { frames.SetGate(value); });
            break;
        default:
            break;
    }
}

bool Chain::Process(const int16_t* in, int16_t* out, uint32_t frames) {
    const size_t total = static_cast<size_t>(frames) * channels;
    // Room is asked for before anything is pushed, so that a refusal loses nothing in the middle of
    // the chain.
    if (in != out) std::memmove(out, in, total * sizeof(int16_t));
    waveBuffer->Reset();
    if (!enhancer->Reserve(frames) || waveBuffer->Reserve(frames) == 0) {
        playbackGain->Process(in, out, frames);
        return false;
    }
    float* const samples = waveBuffer->GetCurrentBufferR32Ptr();
    Begin(in, out, samples, frames);
    const uint32_t produced = Finish(samples, out, frames);

    const size_t sounding = static_cast<size_t>(produced) * channels;
    if (const size_t silent = total - sounding; silent != 0) {
        std::memmove(out + silent, out, sounding * sizeof(int16_t));
        std::memset(out, 0, silent * sizeof(int16_t));
    }
    return true;
}

// Playback gain, float, equalizer: from `in` to `samples`. The gain's limiter of a chunk runs
// beside the equalizer's sums of the chunk before. `out` is only passed through.
void Chain::Begin(const int16_t* in, int16_t* out, float* samples, uint32_t frames) {
    if (!Equalizer::kRunsBeside || channels != 2) {
        playbackGain->Process(in, out, frames);
        if (equalizer->ProcessFromShort(out, samples, frames)) return;
        waveBuffer->Short2Float(out, samples, frames);
        equalizer->Process(samples, frames);
        return;
    }
    playbackGain->Begin(in, frames);
    Equalizer::StereoChunk sums;
    for (uint32_t left = frames, count = 0, before = 0; left + before > 0; before = count) {
        float* const next = samples + size_t{before} * 2;
        count = std::min(left, playbackGain->Room());
        equalizer->Begin(sums, samples, before);
        playbackGain->ProcessChunk(in, out, count, Beside{sums.run, sums.count});
        equalizer->Finish(sums, samples);
        waveBuffer->Short2Float(out, next, count);
        in += size_t{count} * 2;
        out += size_t{count} * 2;
        samples = next;
        left -= count;
    }
}

// Enhancer, output gain, limiter and 16 bits; returns the frames that came out. The contour of a
// chunk runs beside the limiter's gains of the chunk before, or, where floats are unpacked, the
// limiter makes the 16 bits.
uint32_t Chain::Finish(float* samples, int16_t* out, uint32_t frames) {
    if constexpr (!Enhancer::kContourLast) {
        const uint32_t produced = enhancer->Process(samples, frames);
        Amplify(samples, static_cast<size_t>(produced) * channels, outputGain);
        for (uint32_t left = produced, count = 0; left > 0; left -= count) {
            count = std::min(left, limiter->Room(0, channels));
            if (!limiter->ProcessChunkToShort(samples, count, channels, out))
                waveBuffer->Float2Short(samples, out, count);
            samples += size_t{count} * channels;
            out += size_t{count} * channels;
        }
        return produced;
    }
    const uint32_t produced = enhancer->ProcessBands(samples, frames);
    Enhancer::ContourChunk contour;
    float* chunk = samples;
    for (uint32_t left = produced, count = 0, before = 0; left + before > 0; before = count) {
        float* const next = chunk + size_t{before} * channels;
        count = std::min(left, limiter->Room(before, channels));
        enhancer->BeginContour(contour, next, count);
        limiter->ProcessChunk(chunk, before, channels, Beside{contour.run, contour.count});
        enhancer->FinishContour(contour, next);
        Amplify(next, size_t{count} * channels, outputGain);
        chunk = next;
        left -= count;
    }
    waveBuffer->Float2Short(samples, out, produced);
    return produced;
}
