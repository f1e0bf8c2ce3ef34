#include "render/audio/conversion.h"

#include <cmath>

#include "client/quantize.h"
#include "render/failure.h"

namespace {

constexpr size_t kBlockFrames = 4096;

void Check(soxr_error_t error) {
    if (error != nullptr) throw Failure("the sound cannot be resampled: {}", error);
}

}  // namespace

uint32_t ChainRateHz(uint32_t fileRateHz) {
    if (fileRateHz >= 32000 && fileRateHz <= 48000) return fileRateHz;
    return fileRateHz % 11025 == 0 ? 44100 : 48000;
}

Resampler::Resampler(uint32_t inRateHz, uint32_t outRateHz, uint32_t channelCount)
    : channels(channelCount), block(kBlockFrames * channels) {
    if (inRateHz == outRateHz) return;
    soxr_error_t error = nullptr;
    const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_HQ, 0);
    handle.reset(
        soxr_create(inRateHz, outRateHz, channelCount, &error, nullptr, &quality, nullptr));
    Check(error);
}

void Resampler::Run(const float* in, size_t frames, std::vector<float>* out) {
    // A null input tells soxr that the stream has ended. It then returns the remaining frames.
    size_t taken = 0, made = 0;
    do {
        size_t takenNow = 0;
        Check(soxr_process(handle.get(), in == nullptr ? nullptr : in + taken * channels,
                           frames - taken, &takenNow, block.data(), kBlockFrames, &made));
        taken += takenNow;
        out->insert(out->end(), block.begin(),
                    block.begin() + static_cast<ptrdiff_t>(made * channels));
    } while (taken < frames || made > 0);
}

void Resampler::Process(std::span<const float> in, std::vector<float>* out) {
    if (IsIdle())
        out->insert(out->end(), in.begin(), in.end());
    else if (!in.empty())
        Run(in.data(), in.size() / channels, out);
}

void Resampler::Finish(std::vector<float>* out) {
    if (!IsIdle()) Run(nullptr, 0, out);
}

double Quantizer::Noise() {
    constexpr double kSpan = std::minstd_rand::max() - std::minstd_rand::min();
    const auto first = static_cast<double>(random());
    return (first - static_cast<double>(random())) / kSpan;
}

void Quantizer::Process(std::span<const float> in, std::vector<int16_t>* out) {
    out->reserve(out->size() + in.size());
    for (float sample : in) {
        if (!std::isfinite(sample)) {
            ++notNumbers;
            sample = 0;
        }
        if (std::abs(sample) > 1.0f) ++clipped;
        out->push_back(Quantized(sample, dither ? Noise() : 0));
    }
}
