#include "dsp/softfloat/equalizer_core.h"

#include <algorithm>
#include <bit>

namespace {

// One running average over a run of frames: into `averages`, which holds the narrower one, goes
// this one; into y the narrower less this one, times `gain`.
struct Average {
    SoftFloat sum;
    int32_t scale;  // the average is sum * 2^-scale
    SoftFactor gain;

    template <bool first>
    void Run(const SoftFloat* entering, const SoftFloat* leaving, const SoftFloat* narrower,
             SoftFloat* averages, SoftFloat* y, size_t frames) {
        SoftFloat running = sum;
        for (const SoftFloat* const end = y + frames; y != end; ++y) {
            running = running + *entering++;
            const SoftFloat average = {running.m, running.e - scale};
            const SoftFloat term = gain * (*narrower++ - average);
            *averages++ = average;
            *y = first ? term : *y + term;
            running = running - *leaving++;
        }
        sum = running;
    }
};

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
            SoftFloat y[kChunk];
            ProcessChunk(c, count, factors, y);
            for (size_t n = 0; n < count; ++n) run[n * channels] = Packed(y[n]);
        }
        end += count;
        samples += count * channels;
        frames -= count;
    }
    return true;
}

void SoftEqualizerCore::ProcessChunk(size_t channel, size_t frames, const SoftFactor* gains,
                                     SoftFloat* out) {
    SoftFloat averages[kChunk];
    const SoftFloat* const centre = history[channel] + end - kReach;
    for (size_t k = 0; k < kAverages; ++k) {
        const size_t halfWidth = size_t{1} << k;
        Average average = {sums[channel][k], static_cast<int32_t>(k) + 1, gains[k]};
        const SoftFloat* const entering = centre + halfWidth;
        const SoftFloat* const leaving = centre - halfWidth;
        if (k == 0)
            average.Run<true>(entering, leaving, centre, averages, out, frames);
        else
            average.Run<false>(entering, leaving, averages, averages, out, frames);
        sums[channel][k] = average.sum;
    }
    for (size_t n = 0; n < frames; ++n) out[n] = gains[kAverages] * averages[n] + out[n];
}
