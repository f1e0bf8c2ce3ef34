#include "dsp/softfloat/equalizer_core.h"

#include <algorithm>
#include <bit>

#include "dsp/softfloat/average.h"
#include "dsp/softfloat/equalizer_ends.h"

namespace {

constexpr int32_t kUnitBits = 30;                   // a sample is a multiple of 2^-30
constexpr int32_t kUnitExponent = 109 - kUnitBits;  // exponent of a number whose m counts units

float Packed(SoftFloat inUnits) {
    const SoftFloat v = {inUnits.m, inUnits.e + kUnitExponent};
    return std::bit_cast<float>(softfloat::Pack(v));
}

// Returns how much the exponent of sum k is raised.
int32_t RaisedBy(size_t k) {
    return kRaised * static_cast<int32_t>(k);
}

}  // namespace

void SoftEqualizerCore::Reset() {
    for (size_t c = 0; c < kMaxChannels; ++c) {
        for (size_t k = 0; k < kAverages; ++k) sums[c][k] = {0, RaisedBy(k)};
        std::fill_n(history[c], kHistory, 0);
    }
    end = silent = kHistory;
    inUse = true;
}

bool SoftEqualizerCore::HandOver(float* frames, float (*averages)[kMaxChannels], size_t channels) {
    if (!inUse) return false;
    inUse = false;
    for (size_t c = 0; c < channels; ++c) {
        for (size_t n = 0; n < kHistory; ++n)
            frames[n * channels + c] = Packed(NumberOf(history[c][end - kHistory + n]));
        for (size_t k = 0; k < kAverages; ++k)
            averages[k][c] = Packed(NumberOf(sums[c][k], RaisedBy(k)));
    }
    return true;
}

void SoftEqualizerCore::MakeRoom(size_t frames) {
    if (end + frames <= kHistory + kRoom) return;
    for (int32_t* const past : {history[0], history[1]})
        std::copy_n(past + end - kHistory, kHistory, past);
    end = kHistory;
}

// Stores a chunk behind the history, without moving `end`. Reads `shorts`, or `samples` if it is
// null. Returns false if a float sample doesn't fit.
bool SoftEqualizerCore::Take(const int16_t* shorts, const float* samples, size_t frames,
                             size_t channels) {
    MakeRoom(frames);
    int32_t any = 0;
    for (size_t c = 0; shorts != nullptr && c < channels; ++c)
        any |= TakeShorts(shorts + c, history[c] + end, frames, channels);
    for (size_t c = 0; shorts == nullptr && c < channels; ++c) {
        for (size_t n = 0; n < frames; ++n) {
            int32_t& units = history[c][end + n];
            if (!ToUnits(std::bit_cast<uint32_t>(samples[n * channels + c]), units)) return false;
            any |= units;
        }
    }
    silent = any == 0 ? std::min(silent + frames, kHistory + kChunk) : 0;
    return true;
}

size_t SoftEqualizerCore::Process(const int16_t* shorts, float* samples, size_t frames,
                                  size_t channels, const float* gains) {
    if (!inUse) return 0;
    // The gains correct that sums are not divided by their 2, 4 ... samples and have raised
    // exponents.
    SoftFactor factors[kBands];
    for (size_t j = 0; j < kBands; ++j) {
        if (!softfloat::CanBeFactor(gains[j])) return 0;
        factors[j] = softfloat::FactorOf(gains[j]);
        factors[j].e += kUnitExponent + kOutputRaised;
        const size_t k = std::min(j, kAverages - 1);
        factors[j].e -= static_cast<int32_t>(k + 1) + RaisedBy(k);
    }
    size_t done = 0;
    while (done < frames) {
        const size_t count = std::min(frames - done, kChunk);
        float* const chunk = samples + done * channels;
        const int16_t* const taken = shorts != nullptr ? shorts + done * channels : nullptr;
        if (!Take(taken, chunk, count, channels)) break;
        // If only silence enters and leaves the sums, the sums and the outputs don't change: one
        // frame is enough.
        const size_t different = silent >= kHistory + count ? 1 : count;
        for (size_t c = 0; c < channels; ++c) {
            AverageRow rows[kChunk];
            ProcessChunk(c, different, factors, rows);
            FinishRows(rows, &factors[kAverages], chunk + c, different, channels);
            for (size_t n = different; n < count; ++n) chunk[n * channels + c] = chunk[c];
        }
        end += count;
        done += count;
    }
    return done;
}

void SoftEqualizerCore::ProcessChunk(size_t channel, size_t frames, const SoftFactor* gains,
                                     AverageRow* rows) {
    const int32_t* const centre = history[channel] + end - kReach;
    for (size_t k = 0; k < kAverages; ++k) {
        const size_t halfWidth = size_t{1} << k;
        RunningAverage average = {sums[channel][k], gains[k], RaisedBy(k)};
        const auto run = k == 0 ? RunAverage<true> : RunAverage<false>;
        run(rows, centre + halfWidth, centre - halfWidth, &average, frames);
        sums[channel][k] = average.sum;
    }
}
