#include "render/audio/loudness.h"

#include <algorithm>
#include <cmath>
#include <new>

namespace {

constexpr uint32_t kRangeSeconds = 3;  // a shorter stream has at most one window

}  // namespace

LoudnessMeter::LoudnessMeter(uint32_t channelCount, uint32_t rateHz, Metering metering,
                             uint64_t firstFrame)
    : channels(channelCount),
      rate(rateHz),
      overTime(metering == Metering::kOverTime),
      first(firstFrame) {
    if (metering == Metering::kNothing || rateHz < kLowestMeteredRateHz) return;
    state.reset(ebur128_init(channelCount, rateHz, EBUR128_MODE_I | EBUR128_MODE_LRA));
    if (metering != Metering::kLoudness) truePeak.emplace(channelCount, rateHz);
}

void LoudnessMeter::Continue(uint32_t channelCount, uint32_t rateHz) {
    if (state == nullptr) return;
    if (truePeak) {
        earlierPeak = std::max(earlierPeak, truePeak->Peak());
        truePeak.emplace(channelCount, rateHz);
    }
    channels = channelCount;
    rate = rateHz;
    if (rateHz < kLowestMeteredRateHz ||
        ebur128_change_parameters(state.get(), channels, rate) == EBUR128_ERROR_NOMEM)
        state.reset();
}

// Returns the number of frames from the start of the stream to the end of the current tenth.
uint64_t LoudnessMeter::TenthEnds() const {
    return first + ((tenths.size() + 1) * rate + 5) / 10;
}

void LoudnessMeter::Add(std::span<const float> samples) {
    if (state == nullptr) return;
    if (truePeak) truePeak->Add(samples);
    while (!samples.empty()) {
        size_t count = samples.size() / channels;
        if (overTime) count = std::min<uint64_t>(count, TenthEnds() - frames);
        // If libebur128 continued after this error, it would write beyond its buffer.
        if (ebur128_add_frames_float(state.get(), samples.data(), count) == EBUR128_ERROR_NOMEM)
            throw std::bad_alloc();
        samples = samples.subspan(count * channels);
        frames += count;
        if (!overTime || frames < TenthEnds()) continue;
        double lufs = 0;
        ebur128_loudness_window(state.get(), 100, &lufs);
        tenths.push_back(static_cast<float>(std::pow(10, (lufs + 0.691) / 10)));
    }
}

Loudness LoudnessMeter::Result() const {
    Loudness result{NAN, NAN, NAN};
    if (state == nullptr) return result;
    ebur128_loudness_global(state.get(), &result.integratedLufs);
    if (frames >= uint64_t{kRangeSeconds} * rate && std::isfinite(result.integratedLufs))
        ebur128_loudness_range(state.get(), &result.rangeLu);
    if (truePeak) result.truePeakDb = 20 * std::log10(std::max(earlierPeak, truePeak->Peak()));
    return result;
}
