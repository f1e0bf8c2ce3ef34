#include "tools/loudness.h"

#include <algorithm>
#include <cmath>

#include "tools/failure.h"

namespace {

void Check(int error) {
    if (error != EBUR128_SUCCESS) throw Failure("cannot measure the loudness");
}

}  // namespace

LoudnessMeter::LoudnessMeter(uint32_t channelCount, uint32_t rateHz, bool on)
    : channels(channelCount) {
    if (!on) return;
    state.reset(ebur128_init(channelCount, rateHz, EBUR128_MODE_I | EBUR128_MODE_TRUE_PEAK));
    if (state == nullptr)
        throw Failure("cannot measure the loudness at " + std::to_string(rateHz) + " Hz");
}

void LoudnessMeter::Add(std::span<const float> samples) {
    if (state == nullptr) return;
    Check(ebur128_add_frames_float(state.get(), samples.data(), samples.size() / channels));
}

void LoudnessMeter::Add(std::span<const int16_t> samples) {
    if (state == nullptr) return;
    Check(ebur128_add_frames_short(state.get(), samples.data(), samples.size() / channels));
}

Loudness LoudnessMeter::Result() const {
    Loudness result{NAN, NAN};
    if (state == nullptr) return result;
    Check(ebur128_loudness_global(state.get(), &result.integratedLufs));
    double peak = 0;
    for (uint32_t channel = 0; channel < channels; ++channel) {
        double channelPeak = 0;
        Check(ebur128_true_peak(state.get(), channel, &channelPeak));
        peak = std::max(peak, channelPeak);
    }
    result.truePeakDb = 20 * std::log10(peak);
    return result;
}
