#include "effects/fir_equalizer.h"

#include <cmath>
#include <cstring>
#include <new>
#include <type_traits>

namespace {
constexpr uint32_t kHalfWidths[] = {1, 2, 4, 8, 16, 32, 64, 128, 256};
// 1 / (2 half-width): not 1 / (2 half-width + 1), although that many samples are summed.
template <typename Real>
constexpr Real kScales[] = {Real(0x1p-1), Real(0x1p-2), Real(0x1p-3), Real(0x1p-4), Real(0x1p-5),
                            Real(0x1p-6), Real(0x1p-7), Real(0x1p-8), Real(0x1p-9)};
}  // namespace

template <typename Sample, typename Real>
FIREqualizer<Sample, Real>::FIREqualizer() : state(new (std::nothrow) State()) {
    for (int band = 0; band < static_cast<int>(kBands); ++band) SetBandLevel(band, 0.0F);
    Reset();
    SetSamplingRate(44100);
    SetChannels(2);
}

template <typename Sample, typename Real>
FIREqualizer<Sample, Real>::~FIREqualizer() = default;

template <typename Sample, typename Real>
void FIREqualizer<Sample, Real>::SetSamplingRate(unsigned int rate) {
    samplingRate = rate;
}

template <typename Sample, typename Real>
void FIREqualizer<Sample, Real>::SetChannels(unsigned int count) {
    if (count == channels) return;
    channels = count;
    Reset();
}

template <typename Sample, typename Real>
bool FIREqualizer<Sample, Real>::SetEnable(bool enable) {
    if (enable == enabled) return false;
    if (enable && std::is_same_v<Real, float>) Reset();
    enabled = enable;
    return true;
}

template <typename Sample, typename Real>
Real FIREqualizer<Sample, Real>::GainOf(float level) {
    Real L = level;
    if constexpr (std::is_same_v<Real, float>) {
        if (L > 0) L = 2 * L;
    } else {
        if (L > 1) return 2;
    }
    return L < -1 ? 0 : L + 1;
}

template <typename Sample, typename Real>
void FIREqualizer<Sample, Real>::SetBandLevel(int band, float level) {
    if (!state || band < 0 || band >= static_cast<int>(kBands)) return;
    const Real gain = GainOf(level);
    if (!std::isfinite(gain)) return;
    state->bandGains[static_cast<int>(kBands) - 1 - band] = gain;
}

template <typename Sample, typename Real>
void FIREqualizer<Sample, Real>::Reset() {
    if (!state) return;
    std::memset(state->centreRing, 0, sizeof state->centreRing);
    std::memset(state->inputRing, 0, sizeof state->inputRing);
    std::memset(state->runningSums, 0, sizeof state->runningSums);
    state->writeIndex = 0;
    if constexpr (kHasCore) state->core.Reset();
    state->usesCore = kHasCore;
}

// Hands the core's history to the rings, as if they had been in use all along.
template <typename Sample, typename Real>
void FIREqualizer<Sample, Real>::LeaveCore(State& s) {
    if constexpr (kHasCore) {
        for (size_t c = 0; c < kMaxChannels; ++c) {
            for (size_t i = 0; i < kRing; ++i) {
                s.inputRing[c][i] = s.core.Past(c, kRing - i);
                s.centreRing[c][i] = s.core.Past(c, 2 * kRing - i);
            }
            for (size_t k = 0; k < kAverages; ++k) s.runningSums[c][k] = s.core.Sum(c, k);
        }
        s.writeIndex = 0;
        s.usesCore = false;
    }
}

// One sample of one channel; the ring position is moved on by the caller.
template <typename Sample, typename Real>
Real FIREqualizer<Sample, Real>::Step(State& s, size_t channel, Real x) {
    const uint32_t i = s.writeIndex;
    Real* const input = s.inputRing[channel];
    Real* const past = s.centreRing[channel];
    Real* const sums = s.runningSums[channel];
    const Real* const gains = s.bandGains;

    const Real centre = input[i];
    input[i] = x;
    Real averages[kAverages];
    for (size_t k = 0; k < kAverages; ++k) {
        sums[k] += input[(i + kHalfWidths[k]) % kRing];
        averages[k] = sums[k] * kScales<Real>[k];
    }
    Real y = gains[0] * (centre - averages[0]);
    for (size_t j = 1; j < kAverages; ++j) y += gains[j] * (averages[j - 1] - averages[j]);
    y = gains[kAverages] * averages[kAverages - 1] + y;
    for (size_t k = 0; k < kAverages; ++k) sums[k] -= past[(i - kHalfWidths[k]) % kRing];
    past[i] = centre;
    return y;
}

template <typename Sample, typename Real>
void FIREqualizer<Sample, Real>::Process(float* samples, unsigned int frames) {
    const bool supported = samplingRate >= kLowestRateHz && samplingRate <= kHighestRateHz &&
                           channels >= 1 && channels <= kMaxChannels;
    if (!state || !enabled || !supported) return;
    State& s = *state;
    if constexpr (kHasCore) {
        if (s.usesCore) {
            if (s.core.Process(samples, frames, channels, s.bandGains)) return;
            LeaveCore(s);
        }
    }
    float* sample = samples;
    for (unsigned int n = 0; n < frames; ++n) {
        for (size_t channel = 0; channel < channels; ++channel, ++sample)
            *sample = static_cast<float>(Step(s, channel, static_cast<Real>(*sample)));
        s.writeIndex = (s.writeIndex + 1) % kRing;
    }
}

template class FIREqualizer<float, float>;
template class FIREqualizer<float, double>;
