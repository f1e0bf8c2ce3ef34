#include "effects/playback_gain.h"

#include <algorithm>
#include <cmath>
#include <iterator>

namespace {
constexpr float kWeightingHz = 2200.0F;
constexpr float kWeightingQ = 0.33F;
constexpr float kReferenceDb = 23.0F;    // below full scale
constexpr double kPowerScale = 0x1p-48;  // full scale squared is 1
constexpr float kLog10E = 0.43429446F;   // one unit below the float nearest to log10(e)
constexpr float kPowerFloor = 1e-10F;    // silence counts as this: 77 dB below the reference
constexpr int32_t kWarmupCalls = 100;
// A gain g dB becomes g - g^2 / 200: half of it is left of 100 dB, 7.2 dB of 7.5.
constexpr float kHalvedDb = 100.0F;
constexpr uint32_t kRampsPerSecond = 40;  // a ramp takes 25 ms
constexpr int kRiseShift = 4;             // a gain rises 16 times slower than it falls
constexpr int kSampleShift = 9;           // 16-bit full scale, 2^15, to Q24
constexpr uint32_t kChunk = 64;           // samples of a channel at a time
}  // namespace

PlaybackGain::PlaybackGain() {
    DesignWeighting();
    Reset();
}

void PlaybackGain::DesignWeighting() {
    weighting[0].SetBandPassParameter(0, kWeightingHz, static_cast<float>(samplingRate),
                                      kWeightingQ);
    std::fill(weighting + 1, std::end(weighting), weighting[0]);
}

void PlaybackGain::SetRatio(float ratio) {
    compressionRatio = (ratio >= 0 ? ratio : 0.0F) + 1.0F;
}
void PlaybackGain::SetVolume(float newVolume) {
    volume = ToQ24(static_cast<double>(newVolume));
}
void PlaybackGain::SetMaxGainFactor(float factor) {
    maxGain = ToQ24(static_cast<double>(factor));
}

int PlaybackGain::SetEnable(bool enable) {
    if (enable == enabled) return 0;
    if (enable) Reset();
    enabled = enable;
    return 1;
}

void PlaybackGain::SetSamplingRate(unsigned int rate) {
    if (rate == samplingRate) return;
    samplingRate = rate;
    DesignWeighting();
    Reset();
}

void PlaybackGain::SetChannels(unsigned int count) {
    if (count == channels || count > kMaxChannels) return;
    channels = count;
    Reset();
}

void PlaybackGain::Reset() {
    for (size_t c = 0; c < kMaxChannels; ++c) {
        limiter[c].Reset();
        weighting[c].ClearHistory();
        channelGain[c] = 0;
    }
    warmupCount = 0;
}

uint64_t PlaybackGain::AnalyseWave(const int16_t* samples, unsigned int frames, int stride,
                                   int offset, Biquad_FP& filter) {
    if (frames == 0) return 0;
    uint64_t sum = 0;
    for (size_t begin = 0; begin < frames; begin += kChunk) {
        const auto count = static_cast<uint32_t>(std::min<size_t>(frames - begin, kChunk));
        const int16_t* const first = samples + offset + static_cast<ptrdiff_t>(begin) * stride;
        int32_t chunk[kChunk];
        for (size_t i = 0; i < count; ++i)
            chunk[i] = first[static_cast<ptrdiff_t>(i) * stride] * (1 << kSampleShift);
        filter.Process(chunk, count);
        for (size_t i = 0; i < count; ++i)
            sum += static_cast<uint64_t>(static_cast<int64_t>(chunk[i]) * chunk[i]);
    }
    return sum / frames;
}

// Moves the weighting filters over the buffer and the warm-up by a call; returns the automatic
// gain, Q24.
int64_t PlaybackGain::MeasureGain(const int16_t* in, unsigned int frames) {
    uint64_t loudest = 0;
    for (uint32_t c = 0; c < channels; ++c)
        loudest = std::max(loudest, AnalyseWave(in, frames, static_cast<int>(channels),
                                                static_cast<int>(c), weighting[c]));
    const float power = static_cast<float>(static_cast<double>(loudest) * kPowerScale);
    const float levelDb = logf(power + kPowerFloor) * kLog10E * 10 + kReferenceDb;
    const float gainDb = levelDb * invCompressionRatio - levelDb;
    if (warmupCount < kWarmupCalls) ++warmupCount;
    const float warmDb = static_cast<float>(warmupCount) / kWarmupCalls * gainDb;
    const float shapedDb = warmDb - ((warmDb / kHalvedDb) * (warmDb / kHalvedDb)) * (kHalvedDb / 2);
    const float linear = powf(10.0F, shapedDb / 20);
    return TruncateToInt64(static_cast<double>(linear) * kQ24One);
}

void PlaybackGain::AmplifyChannel(size_t channel, int64_t gainQ24, const int16_t* in, int16_t* out,
                                  unsigned int frames) {
    const int64_t rampLength = std::max(samplingRate / kRampsPerSecond, frames);
    const int64_t highest = activeMaxGain;
    const int64_t lowest = -highest;
    const int64_t target = WrapMul64(gainQ24, activeVolume) >> kQ24Bits;
    int64_t gain = channelGain[channel];
    int64_t step = (target - gain) / rampLength;
    if (step >= 1) step >>= kRiseShift;
    for (size_t begin = 0; begin < frames; begin += kChunk) {
        const auto count = static_cast<uint32_t>(std::min<size_t>(frames - begin, kChunk));
        const size_t first = begin * channels + channel;
        int32_t chunk[kChunk];
        for (size_t i = 0; i < count; ++i) {
            const int64_t sample =
                static_cast<int64_t>(in[first + i * channels]) * (1 << kSampleShift);
            const int64_t amplified = (sample * gain) >> kQ24Bits;
            chunk[i] = static_cast<int32_t>(static_cast<uint32_t>(amplified));
            gain += step;
            if (gain > highest)
                gain = highest;
            else if (gain < lowest)
                gain = lowest;
        }
        limiter[channel].Process(chunk, count, 1);
        for (size_t i = 0; i < count; ++i)
            out[first + i * channels] =
                static_cast<int16_t>(static_cast<uint16_t>(chunk[i] >> kSampleShift));
    }
    channelGain[channel] = gain;
}

void PlaybackGain::Process(const int16_t* in, int16_t* out, unsigned int frames) {
    if (activeCompressionRatio != compressionRatio) {
        activeCompressionRatio = compressionRatio;
        invCompressionRatio = 1.0F / compressionRatio;
    }
    activeVolume = volume;
    activeMaxGain = maxGain;
    if (!enabled || frames == 0) return;
    const int64_t gainQ24 = MeasureGain(in, frames);
    for (size_t c = 0; c < channels; ++c) AmplifyChannel(c, gainQ24, in, out, frames);
}
