#include "render/audio/spectrum.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <numbers>

namespace {

constexpr double kLeastSeconds = 1.2;
// Limits the memory at rates far above those of music.
constexpr size_t kMostFrames = size_t{1} << 18;
// The sum of squared Hann windows that are a quarter of their length apart is constant.
constexpr size_t kHops = 4;

size_t WindowFrames(double rateHz) {
    const double least = std::clamp(kLeastSeconds * rateHz, 16.0, double{kMostFrames});
    return std::bit_ceil(static_cast<size_t>(least));
}

// Returns the sum of the elements between two frequencies. Element k covers half a step to either
// side of k * stepHz. An element at either end counts with the part that lies inside.
double SumBetween(const std::vector<double>& values, double stepHz, double lowHz, double highHz) {
    const double low = std::max(lowHz / stepHz + 0.5, 0.0);
    const double high = std::min(highHz / stepHz + 0.5, static_cast<double>(values.size()));
    double sum = 0;
    for (auto k = static_cast<size_t>(low); static_cast<double>(k) < high; ++k) {
        const auto edge = static_cast<double>(k);
        sum += values[k] * (std::min(high, edge + 1) - std::max(low, edge));
    }
    return sum;
}

}  // namespace

double BandLevelDb(const Spectrum& spectrum, double lowHz, double highHz) {
    return 10 * std::log10(SumBetween(spectrum.power, spectrum.stepHz, lowHz, highHz));
}

SpectrumMeter::SpectrumMeter(uint32_t channelCount, double rateHz)
    : channels(channelCount),
      transform(WindowFrames(rateHz)),
      window(transform.time.size()),
      ring(window.size() * channels),
      spectrum{rateHz / static_cast<double>(window.size()),
               std::vector<double>(transform.spectrum.size())} {
    for (size_t n = 0; n < window.size(); ++n)
        window[n] = 0.5 - 0.5 * std::cos(2 * std::numbers::pi * static_cast<double>(n) /
                                         static_cast<double>(window.size()));
}

void SpectrumMeter::Add(std::span<const float> samples) {
    frames += samples.size() / channels;
    for (size_t at = 0; at < samples.size(); at += channels) Push(&samples[at]);
}

void SpectrumMeter::Push(const float* frame) {
    std::copy_n(frame, channels, &ring[next * channels]);
    next = (next + 1) & (window.size() - 1);  // the size is a power of two
    if ((next & (window.size() / kHops - 1)) == 0) AddWindow();
}

void SpectrumMeter::AddWindow() {
    const size_t length = window.size(), mask = length - 1;
    for (size_t channel = 0; channel < channels; ++channel) {
        for (size_t n = 0; n < length; ++n)
            transform.time[n] =
                window[n] * static_cast<double>(ring[((next + n) & mask) * channels + channel]);
        transform.Forward();
        for (size_t k = 0; k < spectrum.power.size(); ++k)
            spectrum.power[k] += std::norm(transform.spectrum[k]);
    }
}

// Adds silence until the last window has left the stream. Every sample is then in the same number
// of windows, so all count the same.
Spectrum SpectrumMeter::Finish() {
    const std::vector<float> silence(channels);
    for (size_t n = 1; n < window.size(); ++n) Push(silence.data());
    double windowPower = 0;
    for (const double weight : window) windowPower += weight * weight;
    const auto length = static_cast<double>(window.size());
    // One factor of 2 adds the negative frequencies. The other scales the mean square of a sine,
    // 1/2, to 1.
    const double scale =
        4 * (length / kHops) /
        (windowPower * length * static_cast<double>(std::max<uint64_t>(frames, 1)) *
         static_cast<double>(channels));
    for (double& power : spectrum.power) power *= scale;
    // 0 Hz and half the rate have no negative frequency to add.
    spectrum.power.front() /= 2;
    spectrum.power.back() /= 2;
    return std::move(spectrum);
}
