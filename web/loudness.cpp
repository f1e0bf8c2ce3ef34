#include "web/loudness.h"

#include <algorithm>
#include <cmath>

#include "web/export.h"

namespace {

int ModeOf(LoudnessMeter::Kind kind) {
    return kind == LoudnessMeter::Kind::kWhole ? EBUR128_MODE_I
                                               : EBUR128_MODE_S | EBUR128_MODE_TRUE_PEAK;
}

double Decibels(double gain) {
    return 20 * std::log10(gain);
}

}  // namespace

LoudnessMeter::LoudnessMeter(uint32_t rateHz, uint32_t channelCount, Kind kind)
    : state(ebur128_init(channelCount, rateHz, ModeOf(kind))), channels(channelCount) {}

LoudnessMeter::~LoudnessMeter() {
    if (state != nullptr) ebur128_destroy(&state);
}

void LoudnessMeter::Add(const float* samples, size_t frames) {
    if (state == nullptr) return;
    ebur128_add_frames_float(state, samples, frames);
    if ((state->mode & EBUR128_MODE_TRUE_PEAK) != EBUR128_MODE_TRUE_PEAK) return;
    for (size_t n = 0; n < frames * channels; ++n)
        squares += static_cast<double>(samples[n]) * samples[n];
    samplesAdded += frames * channels;
    for (uint32_t channel = 0; channel < channels; ++channel) {
        double latest = 0;
        ebur128_prev_true_peak(state, channel, &latest);
        peak = std::max(peak, latest);
    }
}

double LoudnessMeter::IntegratedLufs() const {
    double lufs = -HUGE_VAL;
    if (state != nullptr) ebur128_loudness_global(state, &lufs);
    return lufs;
}

double LoudnessMeter::ShortTermLufs() const {
    double lufs = -HUGE_VAL;
    if (state != nullptr) ebur128_loudness_shortterm(state, &lufs);
    return lufs;
}

LoudnessMeter::Levels LoudnessMeter::TakeLevels() {
    const double meanSquare = samplesAdded == 0 ? 0 : squares / static_cast<double>(samplesAdded);
    const Levels levels{Decibels(std::sqrt(meanSquare)), Decibels(peak)};
    squares = peak = 0;
    samplesAdded = 0;
    return levels;
}

ORVANE_EXPORT(meter_create) LoudnessMeter* MeterCreate(uint32_t rateHz, uint32_t channels) {
    return new (std::nothrow) LoudnessMeter(rateHz, channels, LoudnessMeter::Kind::kWhole);
}
ORVANE_EXPORT(meter_release) void MeterRelease(LoudnessMeter* meter) {
    delete meter;
}
// Adds `samples` interleaved 16-bit samples, whole frames of `channels` channels.
ORVANE_EXPORT(meter_add)
void MeterAdd(LoudnessMeter* meter, const int16_t* pcm, uint32_t samples, uint32_t channels) {
    constexpr uint32_t kMostSamples = 1024;
    float floats[kMostSamples];
    for (uint32_t done = 0; done < samples;) {
        const uint32_t count = std::min(samples - done, kMostSamples);
        for (uint32_t n = 0; n < count; ++n) floats[n] = static_cast<float>(pcm[done + n]) / 32768;
        meter->Add(floats, count / channels);
        done += count;
    }
}
ORVANE_EXPORT(meter_integrated) double MeterIntegrated(const LoudnessMeter* meter) {
    return meter->IntegratedLufs();
}
