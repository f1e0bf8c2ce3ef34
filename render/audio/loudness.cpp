#include "render/audio/loudness.h"

#include <algorithm>
#include <cmath>

namespace {

// The weighting's shelf, at 1682 Hz, has to lie below half the rate. libebur128 takes rates from
// 16 Hz on and at the lowest writes beyond its memory.
constexpr uint32_t kLowestRateHz = 2 * 1682;

}  // namespace

LoudnessMeter::LoudnessMeter(uint32_t channelCount, uint32_t rateHz, bool on)
    : channels(channelCount) {
    if (on && rateHz >= kLowestRateHz)
        state.reset(ebur128_init(channelCount, rateHz, EBUR128_MODE_I | EBUR128_MODE_TRUE_PEAK));
}

void LoudnessMeter::Add(std::span<const float> samples) {
    if (state != nullptr)
        ebur128_add_frames_float(state.get(), samples.data(), samples.size() / channels);
}

void LoudnessMeter::Add(std::span<const int16_t> samples) {
    if (state != nullptr)
        ebur128_add_frames_short(state.get(), samples.data(), samples.size() / channels);
}

Loudness LoudnessMeter::Result() const {
    Loudness result{NAN, NAN};
    if (state == nullptr) return result;
    ebur128_loudness_global(state.get(), &result.integratedLufs);
    double peak = 0;
    for (uint32_t channel = 0; channel < channels; ++channel) {
        double channelPeak = 0;
        ebur128_true_peak(state.get(), channel, &channelPeak);
        peak = std::max(peak, channelPeak);
    }
    result.truePeakDb = 20 * std::log10(peak);
    return result;
}
