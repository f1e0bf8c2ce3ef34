#include "dsp/softfloat/equalizer_core.h"

#include <algorithm>
#include <bit>

#include "dsp/softfloat/average.h"

namespace {

float Packed(SoftFloat v) {
    return std::bit_cast<float>(softfloat::Pack(v));
}

}  // namespace

void SoftEqualizerCore::Reset() {
    for (size_t c = 0; c < kMaxChannels; ++c) {
        std::fill_n(sums[c], kAverages, SoftFloat{});
        std::fill_n(history[c], kHistory, SoftFloat{});
    }
    end = kHistory;
}

float SoftEqualizerCore::Past(size_t channel, size_t ago) const {
    return Packed(history[channel][end - ago]);
}
float SoftEqualizerCore::Sum(size_t channel, size_t k) const {
    return Packed(sums[channel][k]);
}

void SoftEqualizerCore::MakeRoom(size_t frames) {
    if (end + frames <= kHistory + kRoom) return;
    for (SoftFloat* const past : {history[0], history[1]})
        std::copy_n(past + end - kHistory, kHistory, past);
    end = kHistory;
}

bool SoftEqualizerCore::Process(float* samples, size_t frames, size_t channels,
                                const float* gains) {
    SoftFactor factors[kBands];
    for (size_t j = 0; j < kBands; ++j) {
        if (!softfloat::CanBeFactor(gains[j])) return false;
        factors[j] = softfloat::FactorOf(gains[j]);
    }
    for (size_t i = 0; i < frames * channels; ++i)
        if (!softfloat::Enters<-40>(std::bit_cast<uint32_t>(samples[i]))) return false;

    while (frames != 0) {
        const size_t count = std::min(frames, kChunk);
        MakeRoom(count);
        for (size_t c = 0; c < channels; ++c) {
            float* const run = samples + c;
            for (size_t n = 0; n < count; ++n)
                history[c][end + n] = softfloat::Unpack(std::bit_cast<uint32_t>(run[n * channels]));
            AverageRow rows[kChunk];
            ProcessChunk(c, count, factors, rows);
            for (size_t n = 0; n < count; ++n) run[n * channels] = Packed(rows[n].output);
        }
        end += count;
        samples += count * channels;
        frames -= count;
    }
    return true;
}

void SoftEqualizerCore::ProcessChunk(size_t channel, size_t frames, const SoftFactor* gains,
                                     AverageRow* rows) {
    const SoftFloat* const centre = history[channel] + end - kReach;
    for (size_t n = 0; n < frames; ++n) rows[n].average = centre[n];
    for (size_t k = 0; k < kAverages; ++k) {
        const size_t halfWidth = size_t{1} << k;
        RunningAverage average = {sums[channel][k], gains[k], static_cast<int32_t>(k) + 1};
        const auto run = k == 0 ? RunAverage<true> : RunAverage<false>;
        run(rows, centre + halfWidth, centre - halfWidth, &average, frames);
        sums[channel][k] = average.sum;
    }
    for (size_t n = 0; n < frames; ++n)
        rows[n].output = gains[kAverages] * rows[n].average + rows[n].output;
}
